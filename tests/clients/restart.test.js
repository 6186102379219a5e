// A server that is started anew on the same port: its clients know nothing of that, and go on.

import assert from "node:assert/strict";
import {test} from "node:test";
import * as cometd from "./cometd.js";
import * as faye from "./faye.js";
import {Server} from "./server.js";
import {Mailbox, within} from "./waiting.js";

test("clients handshake and subscribe again after a restart", {timeout: 120_000}, async t => {
    let server = await Server.start();
    const starts = [];
    for (const transport of cometd.transports) {
        const mailbox = new Mailbox(`cometd ${transport}`), ready = new Mailbox(`ready: cometd ${transport}`);
        const client = cometd.cometd(server.url, transport);
        // As the library's users do it: subscribe whenever there is a new session.
        client.addListener("/meta/handshake", ({successful}) => {
            if (successful) client.subscribe("/news", ({data}) => mailbox.push(data), reply => ready.push(reply));
        });
        await cometd.handshake(client);
        t.after(() => cometd.ended(client));
        starts.push({mailbox, ready});
    }
    for (const transport of cometd.transports) {
        const client = faye.fayeClient(server.url, transport);
        const mailbox = new Mailbox(`faye ${transport}`), ready = new Mailbox(`ready: faye ${transport}`);
        client.addExtension({
            incoming(message, pass) {
                if (message.channel === "/meta/subscribe") ready.push(message);
                pass(message);
            },
        });
        client.subscribe("/news", data => mailbox.push(data));
        t.after(() => client.disconnect());
        starts.push({mailbox, ready});
    }
    t.after(() => server.stop());
    for (const news of ["before", "after"]) {
        for (const {ready} of starts) assert.ok((await ready.next()).successful);
        const publisher = await cometd.connected(server.url, "websocket");
        await cometd.published(publisher, "/news", news);
        for (const {mailbox} of starts) assert.equal(await mailbox.next(), news);
        await cometd.ended(publisher);
        if (news === "before") {
            const {port} = server;
            await server.stop();
            server = await Server.start(port);
        }
    }
});
