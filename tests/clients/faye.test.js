// The public Faye client and the server.

import assert from "node:assert/strict";
import {after, before, describe, test} from "node:test";
import {transports} from "./cometd.js";
import {fayeClient, nextOf, published, subscribed} from "./faye.js";
import {CuttingProxy} from "./proxy.js";
import {Server} from "./server.js";

const limits = {timeout: 60_000};
const isConnect = message => message.channel === "/meta/connect";
let server;
before(async () => (server = await Server.start()));
after(() => server.stop());

for (const transport of transports) {
    describe(`Faye over ${transport}`, limits, () => {
        let one, other;
        before(() => {
            one = fayeClient(server.url, transport);
            other = fayeClient(server.url, transport);
        });
        after(() => Promise.all([one.disconnect(), other.disconnect()]));

        test("publishes to each other, by names and patterns, one copy to each session", async () => {
            const room = `/${transport}/room`;
            const names = [`${room}/a`, `${room}/*`, `${room}/**`];
            const mailboxes = await Promise.all(names.map(name => subscribed(one, name)));
            const answers = await subscribed(other, `${room}/answer`);
            for (const [name, data] of [["a", 1], ["a/b", 2], ["b", 3]]) await published(other, `${room}/${name}`, data);
            await published(one, `${room}/answer`, "Grüße, 世界 😀");

            assert.equal(await answers.next(), "Grüße, 世界 😀");
            assert.deepEqual(await mailboxes[2].take(4), [1, 2, 3, "Grüße, 世界 😀"]);
            assert.deepEqual(mailboxes.map(mailbox => mailbox.rest), [[1], [1, 3, "Grüße, 世界 😀"], []]);
            const copies = one.got.rest.filter(({channel, data}) => channel.startsWith(room) && data !== undefined);
            assert.equal(copies.length, 4);
            const {connectionType} = await nextOf(one.sent, isConnect);
            assert.equal(connectionType, transport);
        });

        for (const channel of ["/eval/response/output", "/eventmgr/0/figure", "/connector/gap"]) {
            test(`a publish on ${channel} is refused`, () =>
                assert.rejects(published(one, channel, "mine"), {code: 403, params: [channel]}));
        }

        test("a call is answered on its channel", async () => {
            const answers = await subscribed(one, "/service/connector/v1/Eval");
            await published(one, "/service/connector/v1/Eval", {mcode: "6 * 7", uuid: "a-request"});
            const {uuid, responseStr} = await answers.next();
            assert.deepEqual({uuid, responseStr}, {uuid: "a-request", responseStr: "42\n"});
        });

        test("an unknown client handshakes again, subscribes again and goes on", async t => {
            const client = fayeClient(server.url, transport);
            t.after(() => client.disconnect());
            let forgets = true;
            client.addExtension({
                outgoing(message, pass) {
                    if (forgets && isConnect(message)) {
                        forgets = false;
                        message.clientId = "0123456789abcdef0123456789abcdef01234567";
                    }
                    pass(message);
                },
            });
            const mailbox = await subscribed(client, `/${transport}/mine`);
            const {error, advice} = await nextOf(client.got, isConnect);
            assert.match(error, /^402:/);
            assert.equal(advice.reconnect, "handshake");
            await nextOf(client.got, message => message.channel === "/meta/subscribe");
            await published(client, `/${transport}/mine`, "still here");
            assert.equal(await mailbox.next(), "still here");
        });

        test("goes on when the connection has been cut", async t => {
            const proxy = await CuttingProxy.start(server.port);
            const client = fayeClient(proxy.url, transport);
            t.after(() => client.disconnect());
            t.after(() => proxy.stop());
            const mailbox = await subscribed(client, `/${transport}/cut`);
            for (let round = 0; round < 3; ++round) {
                await proxy.cut();
                await published(one, `/${transport}/cut`, round);
                assert.equal(await mailbox.next(), round);
            }
        });

        test("a wrong token is refused, and the client stops", async () => {
            const client = fayeClient(server.url, transport, "another-token-of-the-tests");
            client.connect();
            const {error, advice} = await client.got.next();
            assert.match(error, /^401:/);
            assert.equal(advice.reconnect, "none");
            // Longer than it waits between attempts.
            await new Promise(resolve => setTimeout(resolve, 300));
            assert.equal(client.sent.rest.length, 1);
        });
    });
}
