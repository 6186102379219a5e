import {AckExtension, CometD, type Message as BayeuxMessage} from "cometd";
import {NumoraError, detailOf, errorOf} from "./errors.js";
import {prepareEnvironment} from "./environment.js";

export interface Message {
    channel: string;
    data: unknown;
    /** The number that the server gave the message, if it numbers those of the channel. */
    number?: number;
}

export type Handler = (message: Message) => void;

export interface SessionOptions {
    url: string;
    token: string;
    clientType: string;
    transport?: "websocket" | "long-polling";
    retryMs: number;
    maxMessageSize: number;
}

/** What a client hears of: messages on `channels`, and on "/connector/gap" what it has missed. */
export interface Listener {
    channels: string[];
    handler: Handler;
    onEnd: (error: NumoraError) => void;
}

interface Call {
    resolve: (data: any) => void;
    reject: (error: NumoraError) => void;
    /** The id of the session in which it was sent. */
    sentIn?: string;
}

// Part of the library, but not of its declarations.
type Sender = {send(message: BayeuxMessage): void};
type Reply = BayeuxMessage & {reestablish?: boolean; failure?: {reason?: string}};

/** The channels of notices that the server sends to a session whether it subscribes to them or not. */
const notices = ["/connector/gap", "/connector/dropped"];
/** Milliseconds without a connection after which the server has ended the session. */
const sessionTime = 25_000;

/**
 * A session that goes on for as long as the server can be reached now and then.
 *
 *     open -- connection lost --> retrying -- same session --> open: what was not acknowledged comes again
 *                                    '------- unknown to the server --> new session, which subscribes from where the
 *                                                                       last one was; calls under way are lost
 *     any -- close(), or refused by the server --> ended
 */
export class Session {
    /** Resolves when the session has ended, with the reason unless it was closed. */
    readonly ended: Promise<NumoraError | undefined>;
    private end!: (reason?: NumoraError) => void;
    private isEnded = false;

    private readonly cometd: CometD & Sender;
    private readonly listeners = new Map<Listener, object[]>();
    private readonly calls = new Map<string, Call>();
    private readonly replies = new Map<string, (reply: Reply) => void>();
    private ids = 0;
    /** The number of the last message that was handled; the server has one count for all channels. */
    private position: number | undefined;
    private isFirstOfSession = true;
    /** The session is a new one, and may not know yet what is subscribed. */
    private mustSubscribeAgain = false;
    /** When the connection was lost, in milliseconds; undefined while there is one. */
    private lostAt: number | undefined;

    static async open(options: SessionOptions): Promise<Session> {
        const hasHttp = await prepareEnvironment();
        const session = new Session(options, hasHttp);
        await session.handshake(options);
        return session;
    }

    private constructor(options: SessionOptions, hasHttp: boolean) {
        this.ended = new Promise(resolve => (this.end = resolve));
        this.cometd = new CometD() as CometD & Sender;
        for (const type of this.cometd.getTransportTypes()) {
            const isWanted = options.transport ? type === options.transport : type !== "callback-polling";
            if (!isWanted || (!hasHttp && type !== "websocket")) this.cometd.unregisterTransport(type);
        }
        this.cometd.configure({
            url: options.url,
            logLevel: "warn",
            backoffIncrement: options.retryMs,
            maxBackoff: 5000,
            // The library's own limit is shorter than many a script.
            maxSendBayeuxMessageSize: options.maxMessageSize,
        });
        this.cometd.registerExtension("ack", new AckExtension());
        this.cometd.registerExtension("numora", {
            outgoing: message => {
                const call = this.calls.get((message.data as {uuid?: string} | undefined)?.uuid ?? "");
                if (call && message.channel.startsWith("/service/")) call.sentIn = message.clientId;
                return message;
            },
            incoming: message => (this.isNew(message) ? message : null),
        });
        for (const channel of ["/meta/subscribe", "/meta/unsubscribe"]) {
            this.cometd.addListener(channel, reply => {
                this.replies.get(reply.id!)?.(reply);
                this.replies.delete(reply.id!);
            });
        }
        this.cometd.addListener("/meta/connect", reply => {
            if (reply.successful) this.lostAt = undefined;
            else this.noteLoss();
            if (reply.successful && this.mustSubscribeAgain) this.subscribeAgain();
        });
    }

    private handshake(options: SessionOptions): Promise<void> {
        const ext = {connector: {token: options.token, clientType: options.clientType}};
        return new Promise((resolve, reject) => {
            let isFirst = true;
            this.cometd.addListener("/meta/handshake", (reply: Reply) => {
                if (reply.successful) {
                    if (reply.reestablish) this.resume();
                    resolve();
                } else if (isFirst || reply.advice?.reconnect === "none") {
                    // Later it tries for as long as it takes, but one who connects wants to know.
                    reject(errorOf(reply));
                    this.finish(errorOf(reply));
                    this.cometd.disconnect();
                }
                isFirst = false;
            });
            this.cometd.handshake({ext});
        });
    }

    /** Ends the session. */
    async close(): Promise<void> {
        if (this.isEnded) return;
        this.finish();
        if (this.cometd.isDisconnected()) return;
        await new Promise<void>(resolve => {
            const timer = setTimeout(resolve, 2000);
            this.cometd.disconnect(() => {
                clearTimeout(timer);
                resolve();
            });
        });
    }

    /** Publishes; fails when the server refuses. */
    publish(channel: string, data: unknown): Promise<void> {
        return new Promise((resolve, reject) => {
            this.requireOpen();
            this.cometd.publish(channel, data, reply => (reply.successful ? resolve() : reject(errorOf(reply))));
        });
    }

    /** Sends a request of the type `type`, and returns the response. */
    call(type: string, request: object): Promise<any> {
        const uuid = globalThis.crypto?.randomUUID?.() ?? `${Date.now()}-${Math.random()}`;
        return new Promise((resolve, reject) => {
            this.requireOpen();
            const settle = (action: () => void): void => {
                if (this.calls.delete(uuid)) action();
            };
            const call: Call = {
                resolve: data => settle(() => resolve(data)),
                reject: error => settle(() => reject(error)),
            };
            this.calls.set(uuid, call);
            this.cometd.remoteCall(type, {...request, uuid}, 0, (answer: Reply) => {
                const extension = answer.ext as {connector?: {dropped?: boolean}} | undefined;
                if (extension?.connector?.dropped) {
                    call.reject(new NumoraError("dropped", "the code was not run, because an interrupt came while it waited"));
                } else if (answer.successful) call.resolve(answer.data);
                else call.reject(answer.data ? new NumoraError("failed", detailOf(answer.data)) : errorOf(answer));
            });
        });
    }

    /**
     * Begins to listen; `after` is the number of the last message that is known from an earlier session. Only the
     * first listener can have it, because messages that came before would come after later ones.
     */
    async subscribe(listener: Listener, after?: number): Promise<void> {
        this.requireOpen();
        if (this.listeners.size === 0) this.position = after;
        else if (after !== undefined) throw new RangeError("only the first subscription can begin in the past");
        const deliver = (message: BayeuxMessage): void => listener.handler({
            channel: message.channel,
            data: message.data,
            number: numberOf(message),
        });
        const handles = [...listener.channels, ...notices].map(channel => this.cometd.addListener(channel, deliver));
        this.listeners.set(listener, handles);
        const reply = await this.request("/meta/subscribe", listener.channels, after);
        this.begin(reply);
        if (reply.successful || !this.listeners.has(listener)) return;
        this.forget(listener);
        throw errorOf(reply);
    }

    /** Stops to listen, at once. */
    async unsubscribe(listener: Listener): Promise<void> {
        if (!this.listeners.has(listener)) return;
        this.forget(listener);
        const others = new Set([...this.listeners.keys()].flatMap(({channels}) => channels));
        const unused = listener.channels.filter(channel => !others.has(channel));
        if (unused.length > 0 && !this.isEnded) await this.request("/meta/unsubscribe", unused);
    }

    private forget(listener: Listener): void {
        for (const handle of this.listeners.get(listener) ?? []) this.cometd.removeListener(handle);
        this.listeners.delete(listener);
    }

    // Past the library's own subscribe, which takes one channel: after a loss, one message has to name every channel, or
    // what is played for one of them would mix with what is new on another.
    private request(channel: string, subscription: string[], after?: number): Promise<Reply> {
        const id = `numora-${++this.ids}`;
        const ext = after === undefined ? {} : {connector: {after}};
        return new Promise(resolve => {
            this.replies.set(id, resolve);
            this.cometd.send({id, channel, subscription, ext});
        });
    }

    // Where a subscription begins, for the case that the session ends before any message has come.
    private begin(reply: Reply): void {
        this.position ??= numberOf(reply as BayeuxMessage);
    }

    // After so long a break the server has ended the session for sure.
    private noteLoss(): void {
        this.lostAt ??= Date.now();
        if (Date.now() - this.lostAt < sessionTime) return;
        for (const call of [...this.calls.values()]) call.reject(NumoraError.disconnected("the server cannot be reached"));
    }

    // In a new session, which knows nothing of the last one.
    private resume(): void {
        const current = this.cometd.getClientId();
        for (const call of [...this.calls.values()]) {
            if (call.sentIn !== undefined && call.sentIn !== current) {
                call.reject(NumoraError.disconnected("the server ended the session"));
            }
        }
        if (this.listeners.size === 0) return;
        if (this.position === undefined) {
            for (const {handler} of this.listeners.keys()) handler({channel: "/connector/gap", data: {}});
        }
        this.subscribeAgain();
    }

    private subscribeAgain(): void {
        this.mustSubscribeAgain = false;
        const channels = new Set([...this.listeners.keys()].flatMap(listener => listener.channels));
        this.request("/meta/subscribe", [...channels], this.position).then(reply => {
            this.begin(reply);
            if (reply.successful) return;
            if (reply.error) this.finish(errorOf(reply));
            // Lost with its connection; said again over the next one.
            else this.mustSubscribeAgain = true;
        });
    }

    // Numbers only rise in a session, but for what a repeated request to subscribe has played twice.
    private isNew(message: BayeuxMessage): boolean {
        if (message.channel === "/meta/handshake") this.isFirstOfSession = true;
        const number = numberOf(message);
        if (number === undefined || message.data === undefined) return true;
        if (!this.isFirstOfSession && this.position !== undefined && number <= this.position) return false;
        this.isFirstOfSession = false;
        this.position = number;
        return true;
    }

    private requireOpen(): void {
        if (this.isEnded) throw NumoraError.disconnected("the client is closed");
    }

    private finish(reason?: NumoraError): void {
        if (this.isEnded) return;
        this.isEnded = true;
        const error = reason ?? NumoraError.disconnected("the client was closed");
        for (const call of [...this.calls.values()]) call.reject(error);
        for (const listener of [...this.listeners.keys()]) {
            this.forget(listener);
            listener.onEnd(error);
        }
        this.end(reason);
    }
}

function numberOf(message: BayeuxMessage): number | undefined {
    return (message.ext as {connector?: {seq?: number}} | undefined)?.connector?.seq;
}
