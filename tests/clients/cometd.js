// The public CometD client, as the tests use it.

import {adapt} from "cometd-nodejs-client";
import {Mailbox, within} from "./waiting.js";
import {token} from "./server.js";

adapt();
// Reads what the adapter has set up.
const {AckExtension, CometD} = await import("cometd");

export const transports = ["websocket", "long-polling"];

/** A client of `url` that knows `transport` only; with `ack`, it acknowledges. */
export function cometd(url, transport, {ack = false, configuration = {}} = {}) {
    const client = new CometD();
    for (const type of client.getTransportTypes()) {
        if (type !== transport) client.unregisterTransport(type);
    }
    if (ack) client.registerExtension("ack", new AckExtension());
    client.configure({url, logLevel: "warn", backoffIncrement: 50, ...configuration});
    return client;
}

/** The reply to a handshake with `shown` as the token. */
export function handshake(client, shown = token) {
    return reply("handshake", done => client.handshake({ext: {connector: {token: shown}}}, done));
}

export async function connected(...arguments_) {
    const client = cometd(...arguments_);
    const {successful, error} = await handshake(client);
    if (!successful) {
        await ended(client);
        throw new Error(`refused: ${error}`);
    }
    return client;
}

/** The first thing that `start` calls its argument with. */
export function reply(what, start) {
    return within(20_000, new Promise(start), `reply to ${what}`);
}

/** Subscribes, and returns the mailbox that the messages' data come to. */
export async function subscribed(client, channel) {
    const mailbox = new Mailbox(channel);
    const {successful, error} = await reply(`subscribe ${channel}`,
        done => client.subscribe(channel, message => mailbox.push(message.data), done));
    if (!successful) throw new Error(`refused: ${error}`);
    return mailbox;
}

export function published(client, channel, data) {
    return reply(`publish ${channel}`, done => client.publish(channel, data, done));
}

export function called(client, type, data, timeoutMs = 20_000) {
    return reply(`call ${type}`, done => client.remoteCall(type, data, timeoutMs, done));
}

/** Ends a client, whatever state it is in. */
export async function ended(client) {
    if (!client.isDisconnected()) await reply("disconnect", done => client.disconnect(done));
}
