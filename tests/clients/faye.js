// The public Faye client, as the tests use it.

import faye from "faye";
import {token} from "./server.js";
import {Mailbox, within} from "./waiting.js";

/**
 * A client of `url` that knows `transport` only, and shows `shown` as the token. What it sends and gets comes to its
 * mailboxes `sent` and `got`.
 */
export function fayeClient(url, transport, shown = token) {
    const client = new faye.Client(url, {retry: 0.1});
    // The library handshakes over HTTP in any case.
    if (transport !== "websocket") client.disable("websocket");
    client.sent = new Mailbox("sent");
    client.got = new Mailbox("got");
    client.addExtension({
        outgoing(message, pass) {
            if (message.channel === "/meta/handshake") message.ext = {connector: {token: shown}};
            client.sent.push(message);
            pass(message);
        },
        incoming(message, pass) {
            client.got.push(message);
            pass(message);
        },
    });
    return client;
}

/** Subscribes, and returns the mailbox that the messages' data come to. */
export async function subscribed(client, channel) {
    const mailbox = new Mailbox(channel);
    await within(20_000, client.subscribe(channel, data => mailbox.push(data)), `reply to subscribe ${channel}`);
    return mailbox;
}

/** Fails when the publish is refused. */
export function published(client, channel, data) {
    return within(20_000, client.publish(channel, data), `reply to publish ${channel}`);
}

/** The next message in `mailbox` that `wanted` accepts. */
export async function nextOf(mailbox, wanted) {
    for (;;) {
        const message = await mailbox.next();
        if (wanted(message)) return message;
    }
}
