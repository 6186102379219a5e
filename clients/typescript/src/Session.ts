import {AckExtension, CometD, type Message as BayeuxMessage} from "cometd";
import {NumoraError, errorOf} from "./errors.js";
import {prepareEnvironment, socketFailures} from "./environment.js";
import type {Death} from "./interpreters.js";
import {newName} from "./names.js";
import {Room} from "./Room.js";

export interface Message {
    channel: string;
    data: unknown;
    /** The number that the server gave the message, if it numbers those of the channel. */
    number?: number;
    /** The name of the request that caused the message, if one did. */
    request?: string;
    /** The number of the prompt that it is, if one can answer it, and false if the answer is not to be shown. */
    prompt?: number;
    echo?: boolean;
    /** That of the interpreter, if the message tells of it. */
    death?: Death;
}

/** What a message counts for while it waits for its reader, in characters. */
export function sizeOf({data}: Message): number {
    return 100 + (typeof data === "string" ? data.length : JSON.stringify(data).length);
}

export type Handler = (message: Message) => void;

/**
 * The state of a connection: "lost" since a time as `Date.now` gives it, and then tried again; "ended" when it was closed
 * or refused. `server` is what the server calls itself, another name after each of its starts.
 */
export type ConnectionState =
    | {name: "open"; server: string}
    | {name: "lost"; since: number}
    | {name: "ended"; error?: NumoraError};

/** What may go with a request that is published: docs/wire.md, "What to publish". */
export interface RequestOptions {
    request?: string;
    lossy?: boolean;
    prompt?: number;
    capabilities?: string[];
    life?: number;
}

export interface SessionOptions {
    url: string;
    onState?: (state: ConnectionState) => void;
    /** Fails with the code "404" when the server has no such interpreter any more. */
    findInterpreter?: () => Promise<unknown>;
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
    /** The server was started again: what it ran has ended. */
    onRestart?: () => void;
    /** A new session has subscribed to the channels again, from where the last one was. */
    onResume?: () => void;
}

interface Call {
    resolve: (data: any) => void;
    reject: (error: NumoraError) => void;
    /** The id of the session in which it was sent. */
    sentIn?: string;
}

// Part of the library, but not of its declarations.
type Sender = {send(message: BayeuxMessage): void; _warn(): void};
type Transport = {send(envelope: object, isConnect: boolean): void};
type ConnectorExtension = {seq?: number; request?: string; prompt?: number; echo?: boolean; dropped?: boolean; server?: string; death?: Death};
type Reply = BayeuxMessage & {reestablish?: boolean; failure?: {reason?: string; httpCode?: number}};

/** The channels of notices that the server sends to a session whether it subscribes to them or not. */
const notices = ["/connector/gap", "/connector/dropped"];
/** Milliseconds without a connection after which the server has ended the session. */
const sessionTime = 25_000;
/** Subscribing to it has no effect. */
const nowhere = "/service/alive";
/** What the members of a message take that are not of the caller, in characters. */
const envelope = 200;

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
    /** Why, unless it was closed. */
    private reason: NumoraError | undefined;
    private isLookingForInterpreter = false;
    /** What waits for the readers of the client. */
    readonly room = new Room();

    private readonly cometd: CometD & Sender;
    private readonly listeners = new Map<Listener, object[]>();
    private readonly calls = new Map<string, Call>();
    private readonly replies = new Map<string, (reply: Reply) => void>();
    private ids = 0;
    /** The number of the last message that was handled; the server has one count for all channels. */
    private position: number | undefined;
    private newMessages = 0;
    private isFirstOfSession = true;
    /** The session is a new one, and may not know yet what is subscribed. */
    private mustSubscribeAgain = false;
    /** When the connection was lost, in milliseconds; undefined while there is one. */
    private lostAt: number | undefined;
    /** Requests that wait for it to come back. */
    private delayed: (() => void)[] = [];
    /** What waits for the next answer to a connect. */
    private connects: (() => void)[] = [];
    private readonly maxMessageSize: number;
    /** What the server calls itself, another name after each start. */
    private server: string | undefined;

    static async open(options: SessionOptions): Promise<Session> {
        const hasHttp = await prepareEnvironment();
        if (options.transport && options.transport !== "websocket" && !(hasHttp && options.transport === "long-polling")) {
            throw new NumoraError("invalid",
                `transport must be "websocket"${hasHttp ? ' or "long-polling"' : ": the other one is for browsers"}`);
        }
        const session = new Session(options, hasHttp);
        try {
            await session.handshake(options);
        } catch (error) {
            throw (await session.absence()) ?? error;
        }
        return session;
    }

    private constructor(private readonly options: SessionOptions, hasHttp: boolean) {
        this.ended = new Promise(resolve => (this.end = resolve));
        this.maxMessageSize = options.maxMessageSize;
        this.cometd = new CometD() as CometD & Sender;
        this.cometd._warn = () => {};  // what goes wrong is told by errors
        for (const type of this.cometd.getTransportTypes()) {
            const isWanted = options.transport ? type === options.transport : type !== "callback-polling";
            if (!isWanted || (!hasHttp && type !== "websocket")) this.cometd.unregisterTransport(type);
            else this.pace(this.cometd.findTransport(type) as unknown as Transport);
        }
        // Clients that lost the same server do not all come back at the same moment.
        const retryMs = options.retryMs * (0.5 + Math.random() / 2);
        this.cometd.configure({
            url: options.url,
            logLevel: "warn",
            backoffIncrement: retryMs,
            maxBackoff: retryMs,
            connectTimeout: 10_000,
            // It would be made of a blob, which the policy of a page may refuse without telling anybody.
            useWorkerScheduler: false,
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
            incoming: message => {
                // A server that stops advises to wait; one that is started again would be waited for.
                if (message.advice && message.error?.startsWith("503:")) message.advice.interval = 0;
                return this.isNew(message) ? message : null;
            },
        });
        for (const channel of ["/meta/subscribe", "/meta/unsubscribe"]) {
            this.cometd.addListener(channel, reply => {
                this.replies.get(reply.id!)?.(reply);
                this.replies.delete(reply.id!);
            });
        }
        this.cometd.addListener("/meta/connect", reply => {
            if (reply.successful) {
                if (this.lostAt !== undefined) {
                    this.lostAt = undefined;
                    this.tellOpen();
                }
                this.release(this.delayed);
                this.release(this.connects);
            } else this.noteLoss();
            if (reply.advice?.reconnect === "none") this.finish(NumoraError.disconnected("the server ended the session"));
            else if (reply.successful && this.mustSubscribeAgain) this.subscribeAgain();
        });
    }

    // The server sends more as an answer to the next connect, which therefore waits until there is room for it.
    private pace(transport: Transport): void {
        const send = transport.send.bind(transport);
        transport.send = (envelope, isConnect) => {
            if (!isConnect || !this.room.isFull) return send(envelope, isConnect);
            void this.room.free(() => this.calls.size > 0).then(() => {
                if (!this.cometd.isDisconnected()) send(envelope, isConnect);
            });
        };
    }

    private handshake(options: SessionOptions): Promise<void> {
        const ext = {connector: {token: options.token || undefined, clientType: options.clientType}};
        return new Promise((resolve, reject) => {
            let isFirst = true;
            let untried = this.cometd.getTransportTypes().length;
            this.cometd.addListener("/meta/handshake", (reply: Reply) => {
                if (reply.successful) {
                    isFirst = false;
                    if (reply.reestablish) this.resume(extensionOf(reply).server);
                    this.server = extensionOf(reply).server;
                    this.tellOpen();
                    resolve();
                    return;
                }
                // Later it tries for as long as it takes, but one who connects wants to know.
                const isLast = isFirst && (reply.error !== undefined || --untried === 0);
                if (!isLast && reply.advice?.reconnect !== "none") return;
                const error = reply.error ? errorOf(reply) : unreachable(options.url, reply);
                reject(error);
                this.finish(error);
            });
            this.cometd.handshake({ext});
        });
    }

    /** Ends the session. */
    async close(): Promise<void> {
        if (this.isEnded) return;
        await new Promise<void>(resolve => {
            const timer = setTimeout(resolve, 2000);
            this.finish(undefined, () => {
                clearTimeout(timer);
                resolve();
            });
        });
    }

    /** Publishes, with what `connector` says to the server about it; fails when the server refuses. */
    async publish(channel: string, data: unknown, connector?: RequestOptions): Promise<void> {
        this.requireSendable(channel, data);
        await this.online();
        return new Promise((resolve, reject) => {
            const settle = (reply: Reply): void => (reply.successful ? resolve() : reject(errorOf(reply)));
            try {
                this.cometd.publish(channel, data, connector ? {ext: {connector}} : {}, settle);
            } catch {
                if (this.cometd.isDisconnected()) reject(NumoraError.disconnected("the client is closed"));
                else reject(new NumoraError("invalid", "channel must be a name such as /news/today, and not below /meta"));
            }
        });
    }

    /** Sends a request of the type `type`, and returns the response. */
    async call(type: string, request: object): Promise<any> {
        this.requireSendable(type, request);
        await this.online();
        const uuid = newName();
        return new Promise((resolve, reject) => {
            const settle = (action: () => void): void => {
                if (this.calls.delete(uuid)) action();
            };
            const call: Call = {
                resolve: data => settle(() => resolve(data)),
                reject: error => settle(() => reject(error)),
            };
            this.calls.set(uuid, call);
            this.cometd.remoteCall(type, {...request, uuid}, 0, (answer: Reply) => {
                if (extensionOf(answer).dropped) {
                    call.reject(new NumoraError("dropped", "the code was not run, because an interrupt came while it waited"));
                } else if (answer.successful) call.resolve(answer.data);
                else call.reject(errorOf(answer));
            });
        });
    }

    /**
     * Begins to listen; `after` is the number of the last message that is known from an earlier session. Only the
     * first listener can have it, because messages that came before would come after later ones. Result: the number of the
     * last message that was published before.
     */
    async subscribe(listener: Listener, after?: number): Promise<number | undefined> {
        this.requireOpen();
        if (this.listeners.size === 0) this.position = after;
        else if (after !== undefined) throw new NumoraError("invalid", "after must be given with the first subscription of a client");
        const deliver = (message: BayeuxMessage): void => {
            const {seq: number, request, prompt, echo, death} = extensionOf(message);
            listener.handler({channel: message.channel, data: message.data, number, request, prompt, echo, death});
        };
        const handles = [...listener.channels, ...notices].map(channel => this.cometd.addListener(channel, deliver));
        this.listeners.set(listener, handles);
        try {
            await this.online();
        } catch (error) {
            this.forget(listener);
            throw error;
        }
        const reply = await this.request("/meta/subscribe", listener.channels, after);
        this.begin(reply);
        if (reply.successful || !this.listeners.has(listener)) return extensionOf(reply).seq;
        this.forget(listener);
        throw errorOf(reply);
    }

    /** Stops to listen, at once. */
    async unsubscribe(listener: Listener): Promise<void> {
        if (!this.listeners.has(listener)) return;
        this.forget(listener);
        try {
            await this.online();
        } catch {
            return;  // a session that is lost ends with its subscriptions
        }
        const others = new Set([...this.listeners.keys()].flatMap(({channels}) => channels));
        const unused = listener.channels.filter(channel => !others.has(channel));
        if (unused.length > 0) await this.request("/meta/unsubscribe", unused);
    }

    private forget(listener: Listener): void {
        for (const handle of this.listeners.get(listener) ?? []) this.cometd.removeListener(handle);
        this.listeners.delete(listener);
    }

    // Past the library's own subscribe, which takes one channel: after a loss, one message has to name every channel, or
    // what is played for one of them would mix with what is new on another.
    private request(channel: string, subscription: string[], after?: number): Promise<Reply> {
        if (this.isEnded) return Promise.resolve({channel, successful: false});
        const id = `numora-${++this.ids}`;
        const ext = after === undefined ? {} : {connector: {after}};
        return new Promise(resolve => {
            this.replies.set(id, resolve);
            this.cometd.send({id, channel, subscription, ext});
        });
    }

    // Where a subscription begins, for the case that the session ends before any message has come.
    private begin(reply: Reply): void {
        this.position ??= extensionOf(reply).seq;
    }

    /** Another one for each session with the server; null after the last one. */
    get id(): string | null {
        return this.isEnded ? null : this.cometd.getClientId();
    }

    /**
     * Resolves when what the server has published until now, and what is just about to be, has come, or the session was
     * lost: with an answer to a connect that has waited for messages in vain, or after newer ones.
     */
    async settle(): Promise<void> {
        const {id} = this;
        let last: number | undefined;
        while ((last = extensionOf(await this.request("/meta/subscribe", [nowhere])).seq) === undefined) {
            await this.nextConnect();
            if (this.id !== id) return;
        }
        let before: number;
        do {
            before = this.newMessages;
            await this.nextConnect();
        } while (this.id === id && this.newMessages > before && (this.position ?? 0) <= last);
        if (this.newMessages > before) await this.nextConnect();
    }

    /** Resolves with the next answer to a connect, which comes after some seconds when there are no messages. */
    nextConnect(): Promise<void> {
        return new Promise(resolve => (this.isEnded ? resolve() : this.connects.push(resolve)));
    }

    // After so long a break the server has ended the session for sure.
    private noteLoss(): void {
        if (this.lostAt === undefined) {
            this.lostAt = Date.now();
            this.options.onState?.({name: "lost", since: this.lostAt});
        }
        void this.absence().then(error => error && this.finish(error));
        if (Date.now() - this.lostAt < sessionTime) return;
        for (const call of [...this.calls.values()]) call.reject(NumoraError.disconnected("the server cannot be reached"));
        this.release(this.delayed);
    }

    // What the server says when the interpreter was deleted, which the library does not tell.
    private async absence(): Promise<NumoraError | undefined> {
        if (!this.options.findInterpreter || this.isLookingForInterpreter) return undefined;
        this.isLookingForInterpreter = true;
        try {
            await this.options.findInterpreter();
        } catch (error) {
            if ((error as NumoraError).code === "404") return error as NumoraError;
        } finally {
            this.isLookingForInterpreter = false;
        }
        return undefined;
    }

    private tellOpen(): void {
        this.options.onState?.({name: "open", server: this.server ?? ""});
    }

    private release(waiting: (() => void)[]): void {
        for (const go of waiting.splice(0)) go();
    }

    // In a new session, which knows nothing of the last one.
    private resume(server: string | undefined): void {
        const current = this.cometd.getClientId();
        for (const call of [...this.calls.values()]) {
            if (call.sentIn !== undefined && call.sentIn !== current) {
                call.reject(NumoraError.disconnected("the server ended the session"));
            }
        }
        if (server !== this.server) for (const listener of [...this.listeners.keys()]) listener.onRestart?.();
        if (this.position === undefined) {
            for (const {handler} of this.listeners.keys()) handler({channel: "/connector/gap", data: {}});
        }
        this.subscribeAgain();
    }

    private subscribeAgain(): void {
        this.mustSubscribeAgain = false;
        if (this.listeners.size === 0) return;
        const channels = new Set([...this.listeners.keys()].flatMap(listener => listener.channels));
        this.request("/meta/subscribe", [...channels], this.position).then(reply => {
            this.begin(reply);
            if (reply.successful) for (const listener of [...this.listeners.keys()]) listener.onResume?.();
            else if (reply.advice?.reconnect === "none") this.finish(errorOf(reply));
            // Lost with its connection, or the server cannot do it now.
            else this.mustSubscribeAgain = true;
        });
    }

    // Numbers only rise in a session, but for what a repeated request to subscribe has played twice.
    private isNew(message: BayeuxMessage): boolean {
        if (message.channel === "/meta/handshake") this.isFirstOfSession = true;
        const number = extensionOf(message).seq;
        if (number === undefined || message.data === undefined) return true;
        if (!this.isFirstOfSession && this.position !== undefined && number <= this.position) return false;
        this.isFirstOfSession = false;
        this.position = number;
        ++this.newMessages;
        return true;
    }

    // What is sent without a session is refused, and the connection closed, under the very request to connect again.
    private async online(): Promise<void> {
        this.requireOpen();
        if (this.lostAt === undefined) return;
        await new Promise<void>(resolve => this.delayed.push(resolve));
        this.requireOpen();
        if (this.lostAt !== undefined) throw NumoraError.disconnected("the server cannot be reached");
    }

    private requireOpen(): void {
        if (this.isEnded) throw this.reason ?? NumoraError.disconnected("the client is closed");
    }

    // What the library cannot send it takes for lost.
    private requireSendable(channel: string, data: unknown): void {
        let size: number;
        try {
            size = JSON.stringify({channel, data}).length + envelope;
        } catch (error) {
            throw new NumoraError("invalid", `what is sent must be JSON values: ${(error as Error).message}`);
        }
        if (size > this.maxMessageSize) {
            throw new NumoraError("invalid", `a message must not be longer than maxMessageSize, ${this.maxMessageSize} characters of JSON`);
        }
    }

    /** `onDone` is called when the server knows, if it can be told. */
    private finish(reason?: NumoraError, onDone?: () => void): void {
        if (this.isEnded) return;
        this.isEnded = true;
        this.reason = reason;
        const error = reason ?? NumoraError.disconnected("the client was closed");
        for (const call of [...this.calls.values()]) call.reject(error);
        for (const listener of [...this.listeners.keys()]) {
            this.forget(listener);
            listener.onEnd(error);
        }
        this.release(this.delayed);
        this.release(this.connects);
        this.options.onState?.({name: "ended", error: reason});
        this.end(reason);
        if (this.cometd.isDisconnected()) onDone?.();
        else this.cometd.disconnect(onDone);
    }
}

function extensionOf(message: BayeuxMessage): ConnectorExtension {
    return (message.ext as {connector?: ConnectorExtension} | undefined)?.connector ?? {};
}

function unreachable(url: string, {failure}: Reply): NumoraError {
    const detail = failure?.httpCode ? `status ${failure.httpCode}` : socketFailures.get(url.replace(/^http/, "ws"));
    return NumoraError.disconnected(
        `no server can be reached at ${url}: it must run, and url must name its host, port and path`
        + (detail ? ` (${detail})` : ""));
}
