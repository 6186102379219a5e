import type {ConnectionState, Message, RequestOptions} from "numora-client";
import {NumoraError} from "numora-client/errors.js";
import {exchange} from "numora-client/http.js";
import {Session} from "numora-client/Session.js";
import {channels, clientType, subscribed} from "./messages.js";

/** "gone" is the interpreter, which somebody has deleted. */
export type LinkState =
    | {name: "connecting"}
    | {name: "open"}
    | {name: "lost"; since: number}
    | {name: "refused"; text: string}
    | {name: "gone"};

export interface LinkHandlers {
    onMessage(message: Message): void;
    onState(state: LinkState): void;
    /** What the server had kept has come. */
    onCaughtUp(): void;
    /** The server is another one than before: it was started again. */
    onServerStarted(): void;
}

/** After so long without a message it is asked for whether more is to come. */
const quietMs = 400;
/** What is published there reaches nobody. */
const nowhere = "/service/alive";
const firstRetryMs = 500, lastRetryMs = 5000;

/**
 * The connection to one interpreter, with one subscription to all that the page shows.
 *
 *     connecting -- server answers --> open <-- comes back / lost --> lost, tried again until the server answers
 *     any -- token refused --> refused; interpreter deleted --> gone
 */
export class Connection {
    state: LinkState = {name: "connecting"};
    private session: Session | undefined;
    /** Which start of the server it is. */
    server: string | undefined;
    /** Number of the last message: where a new session begins. */
    private last = 0;
    private closed = false;

    /** `address` is that of the interpreter, without a slash at its end. */
    constructor(readonly address: string, private readonly handlers: LinkHandlers) {}

    async open(): Promise<void> {
        for (let wait = firstRetryMs; !this.closed; wait = Math.min(2 * wait, lastRetryMs)) {
            try {
                return await this.connect();
            } catch (error) {
                if (this.end(error as NumoraError)) return;
                if (this.state.name !== "lost") this.set({name: "lost", since: Date.now()});
            }
            await new Promise(resolve => setTimeout(resolve, wait));
        }
    }

    close(): void {
        this.closed = true;
        void this.session?.close();
    }

    publish(text: string, options: RequestOptions): Promise<void> {
        if (!this.session) return Promise.reject(new NumoraError("disconnected", "there is no connection"));
        return this.session.publish(channels.request, text, options);
    }

    private async connect(): Promise<void> {
        this.session = await Session.open({
            url: `${this.address}/cometd`,
            token: "",  // the cookie shows it
            clientType,
            retryMs: firstRetryMs,
            maxMessageSize: 16 * 1024 * 1024,
            findInterpreter: () => exchange({server: this.address, token: ""}, "GET", ""),
            onState: state => this.changed(state),
        });
        let kept: number | undefined, isBehind = true, timer: ReturnType<typeof setTimeout> | undefined;
        const follow = (): void => {
            clearTimeout(timer);
            if (!isBehind || kept === undefined) return;
            isBehind = this.last < kept;
            if (isBehind) timer = setTimeout(() => void ask(), quietMs);
            else this.handlers.onCaughtUp();
        };
        // The last one may be on a channel that the page does not listen to, or on its way for long: an answer comes behind it.
        const ask = async (): Promise<void> => {
            const {session, last} = this;
            await session?.publish(nowhere, "").catch(() => {});
            if (this.session !== session) return;
            if (this.last === last) kept = 0;
            follow();
        };
        const handler = (message: Message): void => {
            if (message.number !== undefined) this.last = message.number;
            try {
                this.handlers.onMessage(message);
            } catch (error) {
                reportError(error);  // the library would keep it to itself
            }
            if (isBehind) follow();
        };
        kept = (await this.session.subscribe({channels: subscribed, handler, onEnd: () => {}}, this.last)) ?? 0;
        follow();
        this.set({name: "open"});
    }

    private changed(state: ConnectionState): void {
        if (state.name === "open") {
            if (this.server !== undefined && this.server !== state.server) this.handlers.onServerStarted();
            this.server = state.server;
            if (this.session) this.set({name: "open"});
        } else if (state.name === "lost") this.set(state);
        else if (this.session && !this.closed) {
            this.session = undefined;
            if (state.error && !this.end(state.error)) void this.open();
        }
    }

    /** Whether to try again is of no use. */
    private end({code, message}: NumoraError): boolean {
        if (code === "404") this.set({name: "gone"});
        else if (code === "401" || code === "403") this.set({name: "refused", text: message});
        else return false;
        return true;
    }

    private set(state: LinkState): void {
        this.state = state;
        this.handlers.onState(state);
    }
}
