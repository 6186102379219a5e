import {type Address, parseAddress, pathOf} from "./address.js";
import {EvalStream, type StreamOptions} from "./EvalStream.js";
import {EventQueue} from "./EventQueue.js";
import {NumoraError} from "./errors.js";
import {exchange} from "./http.js";
import type {DeathRecord, Interpreter, InterpreterOptions} from "./interpreters.js";
import {type ConnectionState, type Handler, type Message, type RequestOptions, Session, sizeOf} from "./Session.js";

// Every time in this package is in milliseconds.

export interface ConnectOptions {
    /** Unless the address has it, as the one has that the server prints. */
    token?: string;
    /** What the server's telemetry calls the client. */
    clientType?: string;
    /** The only transport to use; otherwise a WebSocket, or, in browsers, HTTP where WebSockets are not available. */
    transport?: "websocket" | "long-polling";
    /** Milliseconds between attempts to reconnect, at most; 500 unless told. */
    retryMs?: number;
    /** How long a message may be, in characters of JSON; the server's own limit is 16 MiB. */
    maxMessageSize?: number;
    /** Called when the connection is there, is lost, comes back, or has ended for good. */
    onState?: (state: ConnectionState) => void;
}

export interface EvalOptions {
    /** Milliseconds after which the code is interrupted, rounded up to whole seconds; 0 for none. */
    timeoutMs?: number;
    /** Size of the window for what is printed, in characters. */
    width?: number;
    height?: number;
}

export interface CallOptions {
    /** How many results are wanted: 0 gives undefined, 1 the result, more an array. */
    nargout?: number;
    /** Milliseconds after which the call is interrupted; 0 for none. */
    timeoutMs?: number;
    /** "ppe" runs the function at once, inside running code. */
    dequeMode?: string;
}

export interface EvalResult {
    text: string;
    /** The code has failed, and the text ends with its traceback. */
    isError: boolean;
    /** 0 idle, 1 debugger, 2 keyboard, 3 input, 4 busy or in the middle of a block. */
    promptType: number;
    clearWindow: boolean;
    /** Warnings, as when text was cut off, and the errors of the code that have an identifier. */
    warnings: NumoraError[];
}

export interface Subscription {
    close(): Promise<void>;
}

interface Fault {
    faultCode: string;
    message: string;
    faultConditions?: {faultId: string}[];
}

/** What the server says of code that an interrupt has found waiting. */
const cancelled = "Request was cancelled before starting.";

/**
 * Connects to the server at `url`, which in a page may be relative to it, and fails if that is not possible or the
 * token is wrong. What a proxy adds as a path belongs to the address, which names another interpreter than the default
 * one with `/interpreters/ID` at its end.
 */
export async function connect(url: string, options: ConnectOptions = {}): Promise<Client> {
    const address = parseAddress(url);
    return connectTo({...address, token: options.token ?? address.token}, options);
}

async function connectTo(address: Address, options: ConnectOptions): Promise<Client> {
    const {server, interpreter, token} = address;
    const session = await Session.open({
        url: `${server}${interpreter ? pathOf(interpreter) : ""}/cometd`,
        findInterpreter: interpreter ? () => exchange(address, "GET", pathOf(interpreter)) : undefined,
        token,
        clientType: options.clientType ?? "typescript",
        transport: options.transport,
        onState: options.onState,
        retryMs: options.retryMs ?? 500,
        maxMessageSize: options.maxMessageSize ?? 16 * 1024 * 1024,
    });
    return new Client(session, address, options);
}

/**
 * Uses the interpreter of a server. Connections that are lost come back by themselves; a request whose answer was lost
 * with its session fails with the code "disconnected", and is not repeated.
 */
export class Client {
    constructor(private readonly session: Session, private readonly address: Address,
                private readonly options: ConnectOptions) {}

    /** Resolves when the client can no longer be used: with the reason, unless it was closed. */
    get ended(): Promise<NumoraError | undefined> {
        return this.session.ended;
    }

    /** Runs code, and returns what it has printed when it has ended or waits for input. */
    async eval(code: string, options: EvalOptions = {}): Promise<EvalResult> {
        const {timeoutMs = 0, width = 0, height = 0} = options;
        const timeout = Math.ceil(timeoutMs / 1000);
        const response = await this.session.call("connector/v1/Eval", {mcode: code, timeout, width, height});
        const faults = faultsOf(response);
        if (faults.some(fault => fault.message === cancelled)) {
            throw new NumoraError("dropped", "the code was not run, because an interrupt came while it waited");
        }
        const failure = faults.find(fault => !fault.identifier);  // the text shows the errors of the code itself
        if (response.isError && failure) throw failure;
        return {
            text: response.responseStr,
            isError: response.isError,
            promptType: response.promptType,
            clearWindow: response.clearCommandWindow,
            warnings: faults,
        };
    }

    /** Calls a function of the workspace, of a module or builtin; the arguments and results are JSON values. */
    async call(name: string, arguments_: unknown[] = [], options: CallOptions = {}): Promise<any> {
        const {nargout = 1, timeoutMs = 0, dequeMode = ""} = options;
        const response = await this.session.call("connector/v1/FEval",
            {function: name, nargout, arguments: arguments_, timeoutMs, dequeMode});
        const [fault] = faultsOf(response);
        if (fault || response.isError) throw fault ?? new NumoraError("failed", "the call failed");
        const results = JSON.parse(response.results ?? "[]");
        return nargout > 1 ? results : results[0];
    }

    /** Stops what runs, and releases the requests that wait. */
    async interrupt(): Promise<void> {
        const [fault] = faultsOf(await this.session.call("connector/v1/Interrupt", {}));
        if (fault) throw fault;
    }

    /**
     * Runs code, and brings what it prints as it does. Printing waits for a reader that is slow, as long as it goes on
     * reading. A reader that has had enough leaves the loop, or calls `return`: what it does not take holds up what comes
     * for others of this client.
     */
    stream(code: string, options: StreamOptions = {}): EvalStream {
        return new EvalStream(this.session, code, options);
    }

    /** Publishes a JSON value on a channel that is not the server's own; with `options` code on "/eval/request". */
    publish(channel: string, data: unknown, options?: RequestOptions): Promise<void> {
        return this.session.publish(channel, data, options);
    }

    /**
     * Calls `handler` with the messages on channels or patterns. What has been missed comes on "/connector/gap". With
     * `after`, the number of the last message that an earlier page or process has handled, it begins after that; only
     * the first subscription can.
     */
    async subscribe(channels: string | string[], handler: Handler, options: {after?: number} = {}): Promise<Subscription> {
        const listener = {channels: [channels].flat(), handler, onEnd: () => {}};
        await this.session.subscribe(listener, options.after);
        return {close: () => this.session.unsubscribe(listener)};
    }

    /** The messages on channels or patterns, for a loop; otherwise as `subscribe`. */
    on(channels: string | string[], options: {after?: number} = {}): AsyncIterableIterator<Message> {
        const queue = new EventQueue<Message>(this.session.room,
            loss => ({channel: "/connector/dropped", data: {channel: "/**", ...loss}}),
            () => void this.session.unsubscribe(listener).catch(() => {}));
        const listener = {
            channels: [channels].flat(),
            handler: (message: Message) => queue.push(message, sizeOf(message)),
            onEnd: (error: NumoraError) => queue.end(error),
        };
        this.session.subscribe(listener, options.after).catch((error: Error) => queue.end(error));
        return queue;
    }

    /** A client for another interpreter of the server, with the same token. */
    async interpreter(id: string): Promise<Client> {
        pathOf(id);  // is one
        return connectTo({...this.address, interpreter: id}, this.options);
    }

    /**
     * Ends the life of this interpreter, also in native code that no interrupt reaches, and begins the next one. What
     * runs is interrupted before, and exit hooks run, for two seconds at most; with `force` not. With `life` only if that
     * is the life it has, else it fails with the code "409". Resolves when the new life takes requests.
     */
    restart(options: {force?: boolean; life?: number} = {}): Promise<Interpreter> {
        return exchange(this.address, "POST", `${this.path}/restart`, options);
    }

    /** How the last lives of this interpreter have ended, the newest first, ten at most. */
    async deaths(): Promise<DeathRecord[]> {
        return (await exchange(this.address, "GET", `${this.path}/deaths`)).deaths;
    }

    /** All interpreters of the server. */
    async interpreters(): Promise<Interpreter[]> {
        return (await exchange(this.address, "GET", "/interpreters")).interpreters;
    }

    /** Makes an interpreter, under an id of the server's choice unless one is given; its process starts on demand. */
    createInterpreter(options: InterpreterOptions = {}): Promise<Interpreter> {
        return exchange(this.address, "POST", "/interpreters", options);
    }

    /** Ends an interpreter and forgets it. The one that is called "default" cannot be deleted. */
    async deleteInterpreter(id: string): Promise<void> {
        await exchange(this.address, "DELETE", pathOf(id));
    }

    private get path(): string {
        return pathOf(this.address.interpreter ?? "default");
    }

    /** Ends the session. What waits for it fails. */
    close(): Promise<void> {
        return this.session.close();
    }
}

function faultsOf(response: {messageFaults?: Fault[]}): NumoraError[] {
    return (response.messageFaults ?? []).map(({faultCode, message, faultConditions}) =>
        new NumoraError(faultCode, message, faultConditions?.[0]?.faultId));
}
