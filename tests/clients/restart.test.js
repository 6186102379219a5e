// A server that is started again on the same port: its clients know nothing of that, and go on.

import assert from "node:assert/strict";
import {test} from "node:test";
import {connect} from "../../clients/typescript/dist/index.js";
import {CometDClient, connected, FayeClient, transports} from "./bayeux.js";
import {Server, token} from "./server.js";

test("clients handshake and subscribe again after a restart", {timeout: 60_000}, async t => {
    let server = await Server.start();
    const clients = [];
    for (const Library of [CometDClient, FayeClient]) {
        for (const transport of transports) {
            const client = await connected(Library, server.url, transport);
            t.after(() => client.end());
            clients.push(client);
        }
    }
    const ours = await connect(server.origin, {token});
    t.after(() => ours.close());
    const stream = ours.stream("input()");
    while ((await stream.next()).value.type !== "input");
    t.after(() => server.stop());  // after the clients, which take leave of it
    let mailboxes = await Promise.all(clients.map(client => client.subscribe("/news")));
    for (const news of ["before", "after"]) {
        const publisher = await connected(CometDClient, server.url, "websocket");
        await publisher.publish("/news", news);
        for (const mailbox of mailboxes) assert.equal(await mailbox.next(), news);
        await publisher.end();
        if (news === "after") break;
        const {port} = server;
        await server.stop();
        server = await Server.start(port);
        mailboxes = await Promise.all(clients.map(async (client, index) => {
            while (!(await client.nextReply("/meta/handshake")).successful);
            // Faye subscribes again by itself.
            if (client instanceof CometDClient) return client.subscribe("/news");
            await client.nextReply("/meta/subscribe");
            return mailboxes[index];
        }));
    }
    // A server that stops interrupts what runs, and may still tell of its end.
    try {
        for await (const _ of stream);
    } catch (error) {
        assert.equal(error.code, "disconnected");
        assert.match(error.message, /^the server was started again/);
    }
    assert.equal((await ours.eval("'here'")).text, "'here'\n");
});
