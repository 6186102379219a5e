// The public Bayeux libraries and the server.

import assert from "node:assert/strict";
import {after, before, describe, test} from "node:test";
import {CometDClient, connected, FayeClient, transports} from "./bayeux.js";
import {CuttingProxy} from "./proxy.js";
import {Server} from "./server.js";

const limits = {timeout: 60_000};
let server;
before(async () => (server = await Server.start()));
after(() => server.stop());

function testLibrary(Library, transport) {
    const root = `/${Library.library}/${transport}`;
    describe(`${Library.library} over ${transport}`, limits, () => {
        let one, other;
        before(async () => {
            one = await connected(Library, server.url, transport);
            other = await connected(Library, server.url, transport);
        });
        after(() => Promise.all([one.end(), other.end()]));

        test("publishes to each other, by names and patterns, one copy to each session", async () => {
            const names = [`${root}/room/a`, `${root}/room/*`, `${root}/room/**`];
            const mailboxes = await Promise.all(names.map(name => one.subscribe(name)));
            const answers = await other.subscribe(`${root}/room/answer`);
            for (const [name, data] of [["a", 1], ["a/b", 2], ["b", 3]]) await other.publish(`${root}/room/${name}`, data);
            await one.publish(`${root}/room/answer`, "Grüße, 世界 😀");

            assert.equal(await answers.next(), "Grüße, 世界 😀");
            assert.deepEqual(await mailboxes[2].take(4), [1, 2, 3, "Grüße, 世界 😀"]);
            assert.deepEqual(mailboxes.map(mailbox => mailbox.rest), [[1], [1, 3, "Grüße, 世界 😀"], []]);
            const copies = one.got.rest.filter(({channel, data}) => channel.startsWith(root) && data !== undefined);
            assert.equal(copies.length, 4);
            const connect = await one.sent.nextOf(({channel}) => channel === "/meta/connect");
            assert.equal(connect.connectionType, transport);
        });

        test("an unknown client handshakes again and goes on", async t => {
            const client = new Library(server.url, transport);
            t.after(() => client.end());
            client.outgoing = message => {
                if (message.channel !== "/meta/connect") return;
                message.clientId = "0123456789abcdef0123456789abcdef01234567";
                client.outgoing = () => {};
            };
            await client.connect();
            // Faye waits for something to do before it connects.
            const early = client.subscribe(`${root}/early`).catch(() => {});
            const {error, advice} = await client.nextReply("/meta/connect");
            assert.match(error, /^402:/);
            assert.equal(advice.reconnect, "handshake");
            assert.ok((await client.nextReply("/meta/handshake")).successful);
            await early;
            const mailbox = await client.subscribe(`${root}/mine`);
            await client.publish(`${root}/mine`, "still here");
            assert.equal(await mailbox.next(), "still here");
        });

        test("a wrong token is refused, and the client stops", async () => {
            const client = new Library(server.url, transport, {shown: "another-token-of-the-tests"});
            const {error, advice} = await client.connect();
            assert.match(error, /^401:/);
            assert.equal(advice.reconnect, "none");
            // Longer than it waits between attempts.
            await new Promise(resolve => setTimeout(resolve, 300));
            assert.equal(client.sent.rest.length, 1);
        });

        test("goes on when the connection has been cut", async t => {
            const proxy = await CuttingProxy.start(server.port);
            const client = await connected(Library, `${proxy.url}/cometd`, transport);
            t.after(() => client.end());
            t.after(() => proxy.stop());
            const mailbox = await client.subscribe(`${root}/cut`);
            for (let round = 0; round < 3; ++round) {
                await proxy.cut();
                await one.publish(`${root}/cut`, round);
                assert.equal(await mailbox.next(), round);
            }
        });
    });
}

for (const Library of [CometDClient, FayeClient]) transports.forEach(transport => testLibrary(Library, transport));
