// Nothing is lost and nothing comes twice, wherever the connection is cut, when the client acknowledges.

import assert from "node:assert/strict";
import {after, before, test} from "node:test";
import {connected, ended, published, subscribed, transports} from "./cometd.js";
import {CuttingProxy} from "./proxy.js";
import {Server} from "./server.js";

const count = 10_000, batch = 100, window = 1_000;
// Bytes after which connections are cut: before an answer, within its head, within a frame, and later.
const cuts = [5_000, 0, 30_000, 70, 60_000, 0, 0, 100_000, 20_000, 1_000, 45_000, 80_000];

let server;
before(async () => (server = await Server.start()));
after(() => server.stop());

/** Publishes the numbers from `first`, and resolves with the reply to the last one. */
function publishBatch(client, channel, first) {
    let last;
    client.batch(() => {
        for (let number = first; number < first + batch; ++number) last = published(client, channel, {number});
    });
    return last;
}

for (const transport of transports) {
    test(`numbered messages over ${transport} through a connection that is cut`, {timeout: 120_000}, async t => {
        const proxy = await CuttingProxy.start(server.port);
        const subscriber = await connected(proxy.url, transport, {ack: true});
        t.after(() => ended(subscriber));
        t.after(() => proxy.stop());
        const publisher = await connected(server.url, "websocket");
        t.after(() => ended(publisher));
        const channel = `/numbers/${transport}`;
        const mailbox = await subscribed(subscriber, channel);
        proxy.cuts.push(...cuts);

        const received = [];
        for (let sent = 0; sent < count; sent += batch) {
            await publishBatch(publisher, channel, sent);
            // A subscriber that may fall behind only so far is in the middle of something at every cut.
            const due = sent + batch - window - received.length;
            if (due > 0) received.push(...await mailbox.take(due));
        }
        received.push(...await mailbox.take(count - received.length));

        assert.deepEqual(proxy.cuts, [], "cuts that were not made");
        await published(publisher, channel, "the end");
        assert.equal(await mailbox.next(), "the end");
        const wrong = received.findIndex(({number}, index) => number !== index);
        assert.equal(wrong, -1, `number ${received[wrong]?.number} in place ${wrong}`);
    });
}
