// The public CometD client and the server.

import assert from "node:assert/strict";
import {after, before, describe, test} from "node:test";
import {called, cometd, connected, ended, handshake, published, subscribed, transports} from "./cometd.js";
import {Server} from "./server.js";
import {Mailbox} from "./waiting.js";

const limits = {timeout: 60_000};
let server;
before(async () => (server = await Server.start()));
after(() => server.stop());

for (const transport of transports) {
    describe(`CometD over ${transport}`, limits, () => {
        let one, other;
        before(async () => {
            one = await connected(server.url, transport);
            other = await connected(server.url, transport);
        });
        after(() => Promise.all([ended(one), ended(other)]));

        test("publishes to each other, by names and patterns, one copy to each session", async () => {
            const room = `/${transport}/room`;
            const copies = [];
            one.registerExtension("copies", {
                incoming: message => void (message.channel.startsWith(room) && message.data && copies.push(message.channel)),
            });
            const names = [`${room}/a`, `${room}/*`, `${room}/**`, `/${transport}/**`];
            const mailboxes = await Promise.all(names.map(name => subscribed(one, name)));
            const answers = await subscribed(other, `${room}/answer`);

            for (const [name, data] of [["a", 1], ["a/b", 2], ["b", 3]]) {
                assert.ok((await published(other, `${room}/${name}`, data)).successful);
            }
            assert.ok((await published(one, `${room}/answer`, {text: "Grüße, 世界 😀"})).successful);

            assert.deepEqual(await answers.next(), {text: "Grüße, 世界 😀"});
            const answer = {text: "Grüße, 世界 😀"};
            assert.deepEqual(await mailboxes[3].take(4), [1, 2, 3, answer]);
            assert.deepEqual(mailboxes.map(mailbox => mailbox.rest), [[1], [1, 3, answer], [1, 2, 3, answer], []]);
            assert.deepEqual(copies, ["a", "a/b", "b", "answer"].map(name => `${room}/${name}`));
        });

        test("nothing comes after an unsubscribe", async () => {
            const left = new Mailbox("left");
            const stays = await subscribed(one, `/${transport}/stays`);
            await new Promise(done => {
                const handle = one.subscribe(`/${transport}/left`, message => left.push(message),
                    () => one.unsubscribe(handle, done));
            });
            await published(other, `/${transport}/left`, 1);
            await published(other, `/${transport}/stays`, 2);
            assert.equal(await stays.next(), 2);
            assert.deepEqual(left.rest, []);
        });

        for (const channel of ["/eval/response/output", "/eventmgr/0/figure", "/connector/gap"]) {
            test(`a publish on ${channel} is refused`, async () => {
                const {successful, error} = await published(one, channel, "mine");
                assert.equal(successful, false);
                assert.match(error, /^403:/);
            });
        }

        test("a call is answered with the response", async () => {
            const answer = await called(one, "connector/v1/Eval", {mcode: "print('ü')\n6 * 7", uuid: "a-request"});
            assert.ok(answer.successful);
            assert.deepEqual(answer.data, {
                uuid: "a-request", responseStr: "ü\n42\n", isError: false, promptType: 0, clearCommandWindow: false,
                messageFaults: [],
            });
        });

        for (const [type, data, error] of [["connector/v1/Nothing", {}, /^404:/], ["connector/v1/Eval", "text", /^400:/]]) {
            test(`a call of ${type} with ${JSON.stringify(data)} fails`, async () => {
                const answer = await called(one, type, data);
                assert.equal(answer.successful, false);
                assert.match(answer.error, error);
            });
        }

        test("a call may take longer than the network's delay, and others go on meanwhile", async t => {
            const client = await connected(server.url, transport, {configuration: {maxNetworkDelay: 1000}});
            t.after(() => ended(client));
            const states = new Mailbox("answers");
            const slow = called(client, "connector/v1/Eval", {mcode: "import time\ntime.sleep(1.5)\n'slow'"});
            slow.then(({data}) => states.push(data.responseStr));
            // A function that may run inside other code is answered first.
            const inside = await called(client, "connector/v1/FEval",
                {function: "abs", nargout: 1, arguments: [-1], dequeMode: "ppe"});
            states.push(inside.data.results);
            assert.deepEqual(await states.take(2), ["[1]", "'slow'\n"]);
        });

        test("an unknown client handshakes again and goes on", async t => {
            const client = cometd(server.url, transport);
            t.after(() => ended(client));
            const handshakes = new Mailbox("handshakes");
            client.addListener("/meta/handshake", message => handshakes.push(message.clientId));
            const refusals = new Mailbox("refusals");
            client.addListener("/meta/unsuccessful", message => refusals.push(message));
            let forgets = true;
            client.registerExtension("forgets", {
                outgoing: message => {
                    if (forgets && message.channel === "/meta/connect") {
                        forgets = false;
                        message.clientId = "0123456789abcdef0123456789abcdef01234567";
                    }
                },
            });
            await handshake(client);

            const {channel, error, advice} = await refusals.next();
            assert.equal(channel, "/meta/connect");
            assert.match(error, /^402:/);
            assert.equal(advice.reconnect, "handshake");
            const [first, second] = await handshakes.take(2);
            assert.notEqual(first, second);
            const mailbox = await subscribed(client, `/${transport}/mine`);
            await published(client, `/${transport}/mine`, "still here");
            assert.equal(await mailbox.next(), "still here");
        });

        test("a wrong token is refused, and the client stops", async () => {
            const client = cometd(server.url, transport);
            const {successful, error, advice} = await handshake(client, "another-token-of-the-tests");
            assert.equal(successful, false);
            assert.match(error, /^401:/);
            assert.equal(advice.reconnect, "none");
            await new Promise(setImmediate);
            assert.equal(client.getStatus(), "disconnected");
        });
    });
}
