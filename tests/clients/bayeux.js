// The public Bayeux libraries, behind one interface.

import {adapt} from "cometd-nodejs-client";
import faye from "faye";
import {token} from "./server.js";
import {Mailbox, within} from "./waiting.js";

adapt();
// Reads what the adapter has set up.
const {CometD} = await import("cometd");

export const transports = ["websocket", "long-polling"];

const limited = (what, promise) => within(20_000, promise, `reply to ${what}`);

/** A client that knows one transport only. What it sends and gets comes to its mailboxes `sent` and `got`. */
class Client {
    sent = new Mailbox("sent");
    got = new Mailbox("got");
    /** May change what is about to be sent. */
    outgoing = () => {};

    /** The reply to a handshake. */
    async connect() {
        this.handshake();
        return this.nextReply("/meta/handshake");
    }

    nextReply(channel) {
        return this.got.nextOf(message => message.channel === channel && message.successful !== undefined);
    }
}

export class CometDClient extends Client {
    static library = "CometD";

    constructor(url, transport, {shown = token} = {}) {
        super();
        this.handshake = () => this.cometd.handshake({ext: {connector: {token: shown}}});
        this.cometd = new CometD();
        for (const type of this.cometd.getTransportTypes()) {
            if (type !== transport) this.cometd.unregisterTransport(type);
        }
        this.cometd.configure({url, logLevel: "error", backoffIncrement: 50});
        this.cometd.registerExtension("tests", {
            outgoing: message => (this.outgoing(message), this.sent.push(message), message),
            incoming: message => (this.got.push(message), message),
        });
    }

    async subscribe(channel) {
        const mailbox = new Mailbox(channel);
        await this.reply(`subscribe ${channel}`,
            done => this.cometd.subscribe(channel, ({data}) => mailbox.push(data), done));
        return mailbox;
    }

    publish = (channel, data) => this.reply(`publish ${channel}`, done => this.cometd.publish(channel, data, done));

    async reply(what, start) {
        const answer = await limited(what, new Promise(start));
        if (!answer.successful) throw new Error(answer.error);
        return answer;
    }

    async end() {
        if (!this.cometd.isDisconnected()) {
            await limited("disconnect", new Promise(done => this.cometd.disconnect(done)));
        }
    }
}

export class FayeClient extends Client {
    static library = "Faye";

    constructor(url, transport, {shown = token} = {}) {
        super();
        this.faye = new faye.Client(url, {retry: 0.1});
        this.handshake = () => this.faye.connect();
        // The library handshakes over HTTP in any case.
        if (transport !== "websocket") this.faye.disable("websocket");
        this.faye.addExtension({
            outgoing: (message, pass) => {
                if (message.channel === "/meta/handshake") message.ext = {connector: {token: shown}};
                this.outgoing(message);
                this.sent.push(message);
                pass(message);
            },
            incoming: (message, pass) => (this.got.push(message), pass(message)),
        });
    }

    async subscribe(channel) {
        const mailbox = new Mailbox(channel);
        await this.reply(`subscribe ${channel}`, this.faye.subscribe(channel, data => mailbox.push(data)));
        return mailbox;
    }

    publish = (channel, data) => this.reply(`publish ${channel}`, this.faye.publish(channel, data));
    end = () => this.faye.disconnect();

    reply(what, promise) {
        return limited(what, promise.then(value => value, error => {
            throw new Error(`${error.code}:${error.params}:${error.message}`);
        }));
    }
}

/** The client of a library, connected. */
export async function connected(Library, ...options) {
    const client = new Library(...options);
    const {successful, error} = await client.connect();
    if (successful) return client;
    await client.end();
    throw new Error(`refused: ${error}`);
}
