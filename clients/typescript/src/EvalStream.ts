import {EventQueue} from "./EventQueue.js";
import {InterpreterDied, NumoraError} from "./errors.js";
import {newName} from "./names.js";
import {type Listener, type Message, type Session, sizeOf} from "./Session.js";
import {type StreamEvent, completion, eventOf, responses, tagged} from "./streamEvents.js";

export interface StreamOptions {
    /** Printing does not wait for a reader that is slow; it loses text instead. */
    lossy?: boolean;
    /** Also brings the tagged events of the code, such as figures and progress. */
    events?: boolean;
    /** What the client can do, such as "display"; code that asks for more fails. */
    capabilities?: string[];
}

/** The number of no prompt: what is sent for it is refused, and before that for a name that is in use. */
const noPrompt = Number.MAX_SAFE_INTEGER;

/** Runs code and brings the events that this code causes, and no others. */
export class EvalStream extends EventQueue<StreamEvent> {
    /** The name of the request, which all of its messages carry. */
    readonly request = newName();
    private readonly listener: Listener;
    private isRunning = false;
    /** The number of the prompt that the reader has been told of. */
    private prompt: number | undefined;

    constructor(private readonly session: Session, code: string, options: StreamOptions) {
        super(session.room, loss => ({type: "dropped", channel: `${responses}**`, ...loss}), () => this.leave());
        this.listener = {
            channels: options.events ? [`${responses}**`, `${tagged}**`] : [`${responses}**`],
            handler: message => this.take(message),
            onEnd: error => this.end(error),
            onRestart: () => {
                if (this.isRunning) this.fail(NumoraError.disconnected("the server was started again, and the code has ended"));
            },
            onResume: () => void this.findEnd().catch((error: Error) => this.fail(error)),
        };
        this.start(code, options).catch((error: Error) => this.fail(error));
    }

    override async next(): Promise<IteratorResult<StreamEvent>> {
        const result = await super.next();
        if (!result.done && result.value.type === "input") this.prompt = result.value.number;
        return result;
    }

    /**
     * Answers the last "input" event; the code gets the text with an end of line. Fails with the code "409" when the
     * code does not wait for this answer any more.
     */
    async input(text: string): Promise<void> {
        if (this.prompt === undefined) throw new NumoraError("409", "an \"input\" event must come before its answer");
        await this.session.publish("/eval/request", `${text}\n`, {request: newName(), prompt: this.prompt});
    }

    private async start(code: string, {lossy, capabilities}: StreamOptions): Promise<void> {
        await this.session.subscribe(this.listener);
        await this.session.publish("/eval/request", code, {request: this.request, prompt: 0, lossy, capabilities});
        this.isRunning = true;
    }

    // The completion of code that ended while there was no session is played again, or is not kept any more.
    private async findEnd(): Promise<void> {
        if (!this.isRunning || await this.isNameInUse()) return;
        const {id} = this.session;
        await this.session.settle();
        if (this.session.id !== id) return;  // the next session finds out
        this.fail(NumoraError.disconnected("the code has ended while there was no session, and how is not known"));
    }

    private async isNameInUse(): Promise<boolean> {
        const {id} = this.session;
        for (; this.session.id === id; await this.session.nextConnect()) {
            try {
                await this.session.publish("/eval/request", "", {request: this.request, prompt: noPrompt});
            } catch (error) {
                const {code, message} = error as NumoraError;
                if (code !== "disconnected") return !message.startsWith("the prompt is gone");
            }
        }
        return true;  // until the next session finds out
    }

    private leave(): void {
        this.session.unsubscribe(this.listener).catch(() => {});
    }

    private fail(error: Error): void {
        this.leave();
        this.end(error);
    }

    private take(message: Message): void {
        if (message.request !== this.request && !message.channel.startsWith("/connector/")) return;
        if (message.death && message.request === this.request) {  // the text of the error is the sentence
            if (message.channel === completion) this.fail(new InterpreterDied(message.death));
            return;
        }
        const event = eventOf(message);
        if (!event) return;
        this.push(event, sizeOf(message));
        if (event.type === "completion") {
            this.leave();
            this.end();
        }
    }
}
