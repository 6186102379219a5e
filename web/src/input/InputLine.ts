import {html, render} from "lit-html";
import type {History} from "../session/History.js";
import type {Session} from "../session/Session.js";
import type {Asks} from "./Completion.js";
import type {Editor, EditorHandlers} from "./Editor.js";
import {PromptField} from "./PromptField.js";

export interface InputHandlers extends Asks {
    onClear(): void;
    onInspect(name: string): void;
    onSearchHistory(): void;
    onDraft(code: string): void;
}

const completenessMs = 300;

/** Below the log: the editor for code, or a field for what code asks for, whichever the session's state has. */
export class InputLine {
    readonly element = document.createElement("section");
    private readonly queue = document.createElement("ol");
    private readonly host = document.createElement("div");
    private readonly symbol = document.createElement("span");
    private readonly field: PromptField;
    private readonly buttons = document.createElement("span");
    private editor: Editor | undefined;
    /** What stands in the editor, also before there is one. */
    private draft: string;
    private shown = "";
    private shownNumber: number | undefined;

    constructor(private readonly session: Session, private readonly history: History, draft: string, private readonly handlers: InputHandlers) {
        this.draft = draft;
        this.element.className = "input";
        this.element.ariaLabel = "Input";
        this.queue.className = "queue";
        this.queue.ariaLabel = "Waiting code";
        this.host.className = "editor";
        this.symbol.className = "symbol";
        this.symbol.ariaHidden = "true";
        this.buttons.className = "input-buttons";
        const row = document.createElement("div"), prompt = document.createElement("div");
        row.className = "input-row";
        prompt.className = "prompt";
        row.append(this.symbol, this.host, prompt, this.buttons);
        this.element.append(this.queue, row);
        this.field = new PromptField(prompt, text => this.session.answer(text));
        void this.load();
    }

    get hasFocus(): boolean {
        return this.element.contains(document.activeElement);
    }

    focus(): void {
        if (this.asks) this.field.focus();
        else this.editor?.focus();
    }

    /** Puts code into the editor that has not run, before what stands there. */
    giveBack(text: string): void {
        if (this.asks && text !== "" && !text.includes("\n") && this.field.text === "") this.field.text = text;
        else this.setCode(this.draft === "" ? text : `${text}\n${this.draft}`);
    }

    /** The same for code that the user has chosen; it takes the place of `insteadOf`. */
    use(code: string, insteadOf: string): void {
        if (!this.asks && this.draft.trim() === insteadOf.trim()) this.setCode(code);
        else this.giveBack(code);
        this.focus();
    }

    setCode(code: string): void {
        this.draft = code;
        if (this.editor) this.editor.code = code;
        this.handlers.onDraft(code);
    }

    insert(text: string): void {
        if (this.asks) this.field.text += text;
        else this.editor?.insert(text);
    }

    update(): void {
        const {mode, prompt, queue, link} = this.session;
        const key = `${mode} ${prompt.number ?? ""} ${prompt.label}`;
        if (key !== this.shown) {
            const hadFocus = this.hasFocus, {text: unsent, isSecret} = this.field;
            const isTooLate = unsent !== "" && prompt.number !== this.shownNumber && this.session.stopping === "no";
            this.shown = key;
            this.shownNumber = prompt.number;
            if (isTooLate) this.field.text = "";
            this.host.hidden = this.symbol.hidden = this.asks;
            if (this.asks) this.field.show(mode, prompt.label);
            else this.field.hide();
            this.symbol.textContent = mode === "keyboard" ? "K>>" : ">";
            if (isTooLate) this.session.tooLate(unsent, isSecret);
            // Who goes on typing an answer must not type code.
            if (hadFocus && isTooLate && !this.asks) this.session.log.region.focus();
            else if (hadFocus) this.focus();
        }
        render(html`<button type="button" class="run" ?hidden=${this.asks} @click=${() => void this.editor?.enter(true)}>Run</button>`, this.buttons);
        this.queue.hidden = queue.waiting.length === 0;
        render(queue.waiting.map((code, index) => html`<li><code>${code.split("\n")[0]}${code.includes("\n") ? " \u2026" : ""}</code>
            <span class="quiet">${index > 0 ? "" : link.name === "open" ? `waits: ${queue.waiting.length} queued` : "waits for the connection"}</span>
            <button type="button" @click=${() => this.edit(index)}>Edit</button>
            <button type="button" @click=${() => queue.take(index)}>Remove</button></li>`), this.queue);
    }

    private get asks(): boolean {
        return ["input", "password", "debugger", "pause"].includes(this.session.mode);
    }

    private edit(index: number): void {
        const code = this.session.queue.take(index);
        if (code !== undefined) this.giveBack(code);
        this.focus();
    }

    private async load(): Promise<void> {
        const {Editor} = await import("./Editor.js");
        const root = this.host.attachShadow({mode: "open", delegatesFocus: true}), parent = document.createElement("div");
        root.append(parent);
        const {handlers, history, session} = this;
        const editorHandlers: EditorHandlers = {
            ...handlers,
            ask: handlers.ask,
            isComplete: code => this.isComplete(code),
            onRun: code => this.run(code),
            onChange: code => {
                this.draft = code;
                if (code === "") history.reset();
                handlers.onDraft(code);
            },
            recall: (by, text) => history.step(by, text),
            onStop: () => {
                const {isBusy} = session;
                if (isBusy) void session.stop();
                return isBusy;
            },
        };
        const editor = new Editor(root, parent, editorHandlers);
        editor.code = this.draft;
        this.editor = editor;
        session.log.closed.addEventListener("abort", () => editor.close());
        if (document.activeElement === document.body && !this.asks) editor.focus();
    }

    private run(code: string): void {
        this.history.add(code);
        this.session.log.scrollToEnd();
        if (this.session.mode === "keyboard") this.session.answer(code);
        else this.session.run(code);
    }

    // The interpreter knows; where it does not say in time, code runs that does not end in a block.
    private async isComplete(code: string): Promise<{complete: boolean; indent: string}> {
        try {
            const answer = await this.handlers.ask<{status: string; indent: string}>("numora.is_complete", [code], AbortSignal.timeout(completenessMs));
            return {complete: answer.status !== "incomplete", indent: answer.indent ?? ""};
        } catch {
            const [, indent = "", colon = ""] = /(?:^|\n)([ \t]*)(?=\S)[^\n]*?(:?)[ \t]*$/.exec(code) ?? [];
            return {complete: indent + colon === "", indent: indent + (colon && "    ")};
        }
    }
}
