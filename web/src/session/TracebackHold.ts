import type {Failure} from "../wire/messages.js";

const beginning = /^Traceback \(most recent call last\):$/m;
const longestWaitMs = 1000, longestText = 1 << 20;

/**
 * Holds the text of a traceback until its "error" event, which comes right after it, so that the log can show the error
 * instead of the text. Any other text that looks like one is let go with what follows, or after a moment.
 */
export class TracebackHold {
    private held = "";
    private timer: ReturnType<typeof setTimeout> | undefined;

    constructor(private readonly release: (text: string) => void) {}

    /** Text of standard error. */
    write(text: string): void {
        if (this.held !== "") {
            // The wait is not begun anew: a program that goes on writing would never be heard.
            this.held += text;
            if (this.held.length > longestText) this.letGo();
            return;
        }
        const at = text.search(beginning);
        if (at !== 0) this.release(at < 0 ? text : text.slice(0, at));
        if (at < 0) return;
        this.held = text.slice(at);
        this.timer = setTimeout(() => this.letGo(), longestWaitMs);
    }

    /** Whether the event is shown in place of the text that is held. */
    accept({traceback}: Failure): boolean {
        const text = this.take(), ending = traceback.join("\n");
        const isWhole = traceback.length > 2 && text.trimEnd().endsWith(ending.trimEnd());
        const before = isWhole ? text.trimEnd().slice(0, -ending.trimEnd().length) : text;
        if (before !== "") this.release(before);
        return isWhole;
    }

    letGo(): void {
        const text = this.take();
        if (text !== "") this.release(text);
    }

    private take(): string {
        clearTimeout(this.timer);
        const text = this.held;
        this.held = "";
        return text;
    }
}
