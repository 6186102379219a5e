import {EventQueue} from "./EventQueue.js";
import type {Listener, Message, Session} from "./Session.js";

/** What happens while streamed code runs. */
export type StreamEvent =
    /** Printed text; that of errors, warnings and the like is on "error". */
    | {type: "text"; stream: "output" | "error"; text: string}
    /** The interpreter shows another prompt. */
    | {type: "prompt"; prompt: string}
    /** The code waits for what `input` sends. */
    | {type: "input"; prompt: string}
    | {type: "clear"}
    | {type: "home"}
    /** A name that may have been meant. */
    | {type: "suggestion"; text: string}
    /** Messages with these numbers may be missing; without numbers, it is not known which. */
    | {type: "gap"; from?: number; to?: number; bytes?: number}
    /** The client was too slow, and this much output is missing. */
    | {type: "dropped"; channel: string; messages: number; bytes: number}
    /** The last event: the code has ended. */
    | {type: "completion"; success: boolean};

const responses = "/eval/response/";
const inputPrompts = ["INPUT_PROMPT", "KEYBOARD_PROMPT", "DEBUG_PROMPT", "PAUSE_PROMPT"];

/**
 * Runs code and brings its events. Those of the server's streams go to all clients: while several run at a time, each
 * has the events of all.
 */
export class EvalStream extends EventQueue<StreamEvent> {
    private readonly listener: Listener;
    /** Completions that are due: one for the code, and one for each text that is typed. */
    private due = 1;

    constructor(private readonly session: Session, code: string) {
        super(() => this.leave());
        this.listener = {
            channels: [`${responses}**`],
            handler: message => this.take(message),
            onEnd: error => this.end(error),
        };
        this.start(code).catch((error: Error) => {
            this.leave();
            this.end(error);
        });
    }

    /** Answers an "input" event; the code gets the text with an end of line. */
    async input(text: string): Promise<void> {
        ++this.due;
        try {
            await this.session.publish("/eval/request", `${text}\n`);
        } catch (error) {
            --this.due;
            throw error;
        }
    }

    private async start(code: string): Promise<void> {
        await this.session.subscribe(this.listener);
        await this.session.publish("/eval/request", code);
    }

    private leave(): void {
        this.session.unsubscribe(this.listener).catch(() => {});
    }

    private take({channel, data}: Message): void {
        if (channel === `${responses}completion`) {
            if (--this.due > 0) return;
            this.push({type: "completion", success: data === "Done: success"});
            this.leave();
            this.end();
            return;
        }
        const event = eventOf(channel, data);
        if (event) this.push(event);
    }
}

function eventOf(channel: string, data: any): StreamEvent | undefined {
    switch (channel) {
        case `${responses}output`:
            return {type: "text", stream: "output", text: data};
        case `${responses}error`:
            return {type: "text", stream: "error", text: data};
        case `${responses}iqminput`:
            return {type: inputPrompts.includes(data) ? "input" : "prompt", prompt: data};
        case `${responses}commandwindow/clear`:
            return {type: "clear"};
        case `${responses}commandwindow/home`:
            return {type: "home"};
        case `${responses}suggest`:
            return {type: "suggestion", text: data};
        case "/connector/gap":
            return {type: "gap", ...data};
        case "/connector/dropped":
            return {type: "dropped", ...data};
        default:
            return undefined;
    }
}

