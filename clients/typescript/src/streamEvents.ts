import type {Message} from "./Session.js";

/** What happens while streamed code runs; `type` says which members there are. */
export type StreamEvent =
    /** Printed text; that of errors, warnings and the like is on "error". */
    | {type: "text"; stream: "output" | "error"; text: string}
    /** The interpreter shows another prompt. */
    | {type: "prompt"; prompt: string}
    /** The code waits for what `input` sends. `echo` is false when what is typed is not to be shown. */
    | {type: "input"; prompt: string; number: number; echo: boolean}
    | {type: "clear"}
    | {type: "home"}
    /** A name that may have been meant. */
    | {type: "suggestion"; text: string}
    /** A tagged event, such as "figure", for a stream that wants them. */
    | {type: "event"; tag: string; data: unknown}
    /** Messages with these numbers may be missing; without numbers, it is not known which. */
    | {type: "gap"; from?: number; to?: number; bytes?: number}
    /** The client was too slow, and this is missing; the channel may be a pattern, and the loss another request's. */
    | {type: "dropped"; channel: string; messages: number; bytes: number; from?: number; to?: number}
    /** The last event, unless the stream fails: the code has ended. */
    | {type: "completion"; success: boolean};

export const responses = "/eval/response/";
export const completion = `${responses}completion`;
export const tagged = "/eventmgr/0/";

/** What a message tells; undefined for one that tells nothing a stream brings. */
export function eventOf({channel, data: body, prompt: number, echo = true}: Message): StreamEvent | undefined {
    const data = body as any;
    if (channel.startsWith(tagged)) return {type: "event", tag: channel.slice(tagged.length), data};
    switch (channel) {
        case `${responses}output`:
            return {type: "text", stream: "output", text: data};
        case `${responses}error`:
            return {type: "text", stream: "error", text: data};
        case `${responses}iqminput`:
            return number === undefined ? {type: "prompt", prompt: data} : {type: "input", prompt: data, number, echo};
        case `${responses}commandwindow/clear`:
            return {type: "clear"};
        case `${responses}commandwindow/home`:
            return {type: "home"};
        case `${responses}suggest`:
            return {type: "suggestion", text: data};
        case completion:
            return {type: "completion", success: data === "Done: success"};
        case "/connector/gap":
            return {type: "gap", ...data};
        case "/connector/dropped":
            return {type: "dropped", ...data};
        default:
            return undefined;
    }
}
