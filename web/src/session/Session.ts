import type {Message, NumoraError, RequestOptions} from "numora-client";
import {newName} from "numora-client/names.js";
import type {EntryHandle, Output} from "../output/api.js";
import type {LinkState} from "../wire/Connection.js";
import type {Activity} from "../wire/calls.js";
import {type Evaluation, type Failure, type Life, type Loss, type PromptName, type Question, type Tag, channels, clientType as ownType, tagOf} from "../wire/messages.js";
import {Answers} from "./Answers.js";
import type {CodeQueue} from "./CodeQueue.js";
import {TracebackHold} from "./TracebackHold.js";
import {clockText, lossText} from "./texts.js";

export type Mode = "idle" | "running" | "input" | "password" | "debugger" | "keyboard" | "pause";

/** What a session needs of the connection. */
export interface Wire {
    publish(text: string, options: RequestOptions): Promise<void>;
    interrupt(): Promise<void>;
    /** What the interpreter does now, where no message has told. */
    activity(): Promise<Activity | undefined>;
}

/** Shows in an entry what is no text. */
export interface Showing {
    event(tag: Tag, data: any, entry: EntryHandle): void;
    death(life: Life, entry: EntryHandle): void;
    /** A name that may have been meant; `failure` is the error that says so, where it is known. */
    suggestion(name: string, entry: EntryHandle, failure?: Failure): void;
}

export interface SessionHandlers {
    onChange(): void;
    /** The variables have changed, or are gone. */
    onWorkspace(isEmpty: boolean): void;
    /** Code or typed text that was not taken. */
    onReturned(text: string): void;
}

const modes: Record<PromptName, Mode> = {
    BASE_PROMPT: "idle",
    INCOMPLETE_BLOCK_PROMPT: "idle",
    NO_PROMPT: "running",
    INPUT_PROMPT: "input",
    KEYBOARD_PROMPT: "keyboard",
    DEBUG_PROMPT: "debugger",
    PAUSE_PROMPT: "pause",
};
const reactsMs = 3000;
const newLifeText = "The interpreter was started again: variables are gone";

/**
 * What one interpreter does, from its messages, and what is sent to it.
 *
 *     idle -- code is sent, or runs for others --> running -- prompt --> input, password, debugger, keyboard, pause
 *       ^                                             |  ^------ answer ----------'
 *       '---------------- it ends --------------------'      stop(): isStopping until it ends or asks
 */
export class Session {
    mode: Mode = "idle";
    /** Number and text of the question, where code asks for something. */
    prompt: {number?: number; label: string} = {label: ""};
    /** When the code began that runs, as Date.now() gives it. */
    runsSince = 0;
    stopping: "no" | "asked" | "deaf" = "no";
    /** That of the interpreter; undefined until it is known. */
    life: Life | undefined;
    link: LinkState = {name: "connecting"};

    /** The last life that took requests. */
    private lifeReady: number | undefined;
    private deadLife: number | undefined;
    private readonly entries = new Map<string, EntryHandle>();
    private current: EntryHandle | undefined;
    /** The name of the code that was sent and has not ended. */
    private underWay: string | undefined;
    private question: Question | undefined;
    /** The prompt to which an answer is on its way; what ends the prompt waits until it is known whose answer that was. */
    private answered: number | undefined;
    private readonly held: Message[] = [];
    private lastLine = "";
    private knowsPrompt = false;
    /** What comes is of the past: it is shown, and causes nothing. */
    private isReplaying = true;
    private stopTimer: ReturnType<typeof setTimeout> | undefined;
    /** A name that stands behind the error which is still to come. */
    private suggested: string | undefined;
    private readonly hold = new TracebackHold(text => this.entry().write(text, "error"));

    constructor(readonly log: Output, private readonly wire: Wire, private readonly showing: Showing, readonly queue: CodeQueue,
                private readonly answers: Answers, private readonly handlers: SessionHandlers) {}

    // What the user does.

    /** Runs `code` now, or when what is before it has ended. */
    run(code: string): void {
        if (code.trim() === "") return;
        this.queue.add(code);
        this.sendNext();
    }

    /** Answers the question that the code asks. */
    answer(text: string): void {
        const {mode, prompt: {number}} = this;
        if (number !== undefined && number === this.answered) return this.tooLate(text, mode === "password");  // Enter, pressed twice
        if (number !== undefined) this.answers.add(number, text, mode === "password");
        this.answered = number;
        this.wire.publish(`${text}\n`, {request: newName(), prompt: number}).catch((error: NumoraError) => {
            if (number !== undefined) this.answers.remove(number);
            if (error.code === "409" && mode !== "keyboard") return this.tooLate(text, mode === "password");
            this.log.notice(notSent(error, "answer"));
            if (mode !== "password") this.handlers.onReturned(text);
        }).finally(() => {
            this.answered = undefined;
            for (const message of this.held.splice(0)) this.take(message);
        });
    }

    /** What was typed for a question that has been answered elsewhere, or waits no more. */
    tooLate(text: string, isSecret: boolean): void {
        if (text === "") return;
        this.log.notice(`The code does not wait for this answer any more: ${isSecret ? "it" : `"${text}"`} was not sent`);
    }

    async stop(): Promise<void> {
        this.returnQueue();
        if (!this.isBusy) return;
        this.stopping = "asked";
        clearTimeout(this.stopTimer);
        this.stopTimer = setTimeout(() => {
            this.stopping = "deaf";
            this.handlers.onChange();
        }, reactsMs);
        this.handlers.onChange();
        await this.wire.interrupt().catch((error: Error) => {
            this.stopped();
            this.log.notice(`It could not be stopped: ${error.message}`);
            this.handlers.onChange();
        });
    }

    /** Puts the code that waits back where it was typed. */
    returnQueue(): void {
        const waiting = this.queue.takeAll();
        if (waiting !== "") this.handlers.onReturned(waiting);
    }

    // What the wire tells.

    linkChanged(link: LinkState): void {
        const before = this.link.name;
        this.link = link;
        if (link.name === "connecting") this.isReplaying = true;
        if (link.name === "gone") this.log.notice("The interpreter was deleted");
        if (link.name === "open" && before !== "open" && !this.isReplaying) void this.refresh().then(() => this.sendNext());
        this.handlers.onChange();
    }

    caughtUp(): void {
        this.isReplaying = false;
        void this.refresh(true).then(() => this.sendNext());
    }

    serverStarted(): void {
        this.startedAgain(`The server was started again at ${new Date().toLocaleTimeString()}: variables are gone`);
    }

    take(message: Message): void {
        const {channel, data, request} = message;
        if (this.held.length > 0 || (this.answered !== undefined && channel === channels.prompt)) return void this.held.push(message);
        const tag = tagOf(channel);
        // Those of variables and states keep no place among text.
        if (channel !== channels.error && channel !== channels.suggest && !(tag && ["error", "workspace", "status"].includes(tag))) {
            this.hold.letGo();
            this.suggest();
        }
        if (tag) this.event(tag, data, request);
        else if (channel === channels.output) this.write(data as string);
        else if (channel === channels.error) message.death ? undefined : this.hold.write(data as string);
        else if (channel === channels.prompt) this.prompted(data as PromptName, message);
        else if (channel === channels.completion) this.completed(request, data === "Done: success");
        else if (channel === channels.clear) this.log.clear();
        else if (channel === channels.home) this.log.home();
        else if (channel === channels.suggest) this.suggested = data as string;
        else if (channel === channels.interpreter) this.lived(data as Life);
        else if (channel === channels.gap || channel === channels.dropped) this.lost(channel, data as Loss);
    }

    private write(text: string): void {
        this.entry().write(text, "output");
        this.lastLine = (this.lastLine + text.slice(-2000)).slice(-2000).replace(/^[^]*\n(?=[^])/, "");
    }

    private event(tag: Tag, data: any, request: string | undefined): void {
        if (tag === "evaluation") this.evaluation(data as Evaluation);
        else if (tag === "workspace") this.handlers.onWorkspace(false);
        else if (tag === "input") this.question = data as Question;
        else if (tag === "error") this.failed(data as Failure, this.entry(request));
        else if (tag !== "status") this.showing.event(tag, data, this.entry(request));
    }

    private failed(failure: Failure, entry: EntryHandle): void {
        if (this.hold.accept(failure)) this.showing.event("error", failure, entry);
        this.suggest(failure, entry);
    }

    private suggest(failure?: Failure, entry = this.current): void {
        const name = this.suggested;
        this.suggested = undefined;
        if (name !== undefined) this.showing.suggestion(name, entry ?? this.entry(), failure);
    }

    private evaluation({number, request, code, clientType, state, isError, seconds}: Evaluation): void {
        if (state === "begun") {
            let entry = this.entryOf(request, number);
            entry ??= this.log.beginEntry({code, number, clientType, isOwn: clientType === ownType});
            if (request !== null) this.entries.set(request, entry);
            entry.setNumber(number);
            this.current = entry;
            this.runsSince = Date.now();
        } else {
            const entry = this.entryOf(request, number);
            if (entry && !entry.result) entry.end({isError: isError === true, seconds: seconds ?? undefined});
            if (request !== null && request !== this.underWay) this.entries.delete(request);
        }
    }

    private entryOf(request: string | null, number: number): EntryHandle | undefined {
        const own = request === null ? undefined : this.entries.get(request);
        return own ?? (this.current?.start.number === number && !this.current.result ? this.current : undefined);
    }

    private prompted(name: PromptName, {prompt: number, echo}: Message): void {
        this.knowsPrompt = true;
        const {number: answered} = this.prompt;
        if (answered !== undefined && number !== answered) {
            const typed = this.answers.get(answered);
            if (typed !== undefined) this.write(`${typed}\n`);
        }
        const mode = modes[name] ?? "running";
        if (mode === "running" && this.mode === "idle") this.runsSince = Date.now();
        if (mode !== "running") this.stopped();
        this.mode = mode === "input" && (echo === false || (this.question?.password && this.question.number === number)) ? "password" : mode;
        const text = number !== undefined && this.question?.number === number ? this.question.prompt : this.lastLine;
        this.prompt = {number, label: mode === "idle" ? "" : text};
        if (mode === "idle") this.lastLine = "";
        if (name === "INCOMPLETE_BLOCK_PROMPT") {
            this.entry().notice("A block is still open: nothing has run");
            if (!this.isReplaying) this.handlers.onReturned(this.entry().start.code);
        }
        this.handlers.onChange();
        this.sendNext();
    }

    private completed(request: string | undefined, isSuccess: boolean): void {
        const entry = request === undefined ? undefined : this.entries.get(request);
        if (entry && !entry.result) entry.end({isError: !isSuccess});
        if (request !== undefined) this.entries.delete(request);
        if (request === this.underWay) this.underWay = undefined;
        this.handlers.onChange();
        this.sendNext();
    }

    private lived(life: Life): void {
        const before = this.life;
        this.life = life;
        if (life.death && life.death.life !== before?.death?.life) {
            this.showing.death(life, this.entry());
            this.deadLife = life.death.life;
            this.forget();
        }
        if (life.state === "ready" && this.lifeReady !== life.life) {
            if (this.lifeReady !== undefined && this.lifeReady < life.life) {
                // What was sent after a death belongs to the new life.
                if (this.deadLife !== undefined && this.deadLife >= this.lifeReady) this.log.notice(newLifeText);
                else this.startedAgain(newLifeText);
            }
            this.lifeReady = life.life;
            this.handlers.onWorkspace(false);
        }
        this.handlers.onChange();
        this.sendNext();
    }

    private lost(channel: string, loss: Loss): void {
        this.log.notice(lossText(channel === channels.gap, loss));
        this.knowsPrompt = false;
        void this.refresh();
    }

    private startedAgain(text: string): void {
        this.forget();
        this.log.notice(text);
        this.handlers.onChange();
    }

    // What ran is gone.
    private forget(): void {
        this.stopped();
        for (const entry of this.entries.values()) if (!entry.result) entry.end({isError: true});
        if (this.current && !this.current.result) this.current.end({isError: true});
        this.entries.clear();
        this.underWay = undefined;
        this.mode = "idle";
        this.prompt = {label: ""};
        if (this.isReplaying) return;
        this.returnQueue();
        this.handlers.onWorkspace(true);
    }

    private stopped(): void {
        clearTimeout(this.stopTimer);
        this.stopping = "no";
    }

    // Where the messages that are kept have not told what the interpreter does.
    private async refresh(isFirst = false): Promise<void> {
        const now = await this.wire.activity().catch(() => undefined);
        if (!now) return;
        const {question} = now, mode = question?.password ? "password" : modes[now.prompt];
        if (mode !== "idle") {
            this.runsSince = Date.now() - now.ms;
            if (isFirst) this.showRunning(now);
        }
        if (!this.knowsPrompt && this.mode !== mode) {
            this.mode = mode;
            this.prompt = {number: question?.number, label: question?.prompt || this.lastLine};
        }
        if (mode === "idle" && this.mode === "idle") this.underWay = undefined;
        this.handlers.onChange();
    }

    // Code that began before anybody listened.
    private showRunning({number, code}: Activity): void {
        const {result, start} = this.current ?? {};
        if (code && (result || !start?.code)) this.current = this.log.beginEntry({code, number, isOwn: false});
    }

    private sendNext(): void {
        if (this.mode !== "idle" || this.underWay !== undefined || this.link.name !== "open" || this.isReplaying) return;
        const code = this.queue.take();
        if (code === undefined) return;
        const request = newName();
        this.underWay = request;
        const entry = this.log.beginEntry({code, isOwn: true});
        this.entries.set(request, entry);
        this.current = entry;
        this.runsSince = Date.now();
        this.handlers.onChange();
        this.wire.publish(code, {request, prompt: 0, capabilities: ["display", "figures"]}).catch((error: NumoraError) => {
            entry.notice(notSent(error, "code"));
            if (error.code !== "disconnected") this.handlers.onReturned(code);
            this.completed(request, false);
        });
    }

    get isBusy(): boolean {
        return this.mode !== "idle" || this.underWay !== undefined;
    }

    /** Shows how long the code runs that does. */
    tick(): void {
        if (this.mode !== "idle" && this.current && !this.current.result) this.current.setLabel(`running ${clockText(Date.now() - this.runsSince)}`);
    }

    /** Where text of `request` goes: into its entry, else into that of what runs, else into one without code. */
    private entry(request?: string): EntryHandle {
        const own = request === undefined ? undefined : this.entries.get(request);
        return own ?? (this.current ??= this.log.beginEntry({code: "", isOwn: true}));
    }
}

function notSent({code, message}: NumoraError, what: "code" | "answer"): string {
    if (code === "disconnected") return `The connection was lost: it is not known whether this ${what === "code" ? "has run" : "was taken"}`;
    return `The ${what} was not taken: ${message}`;
}
