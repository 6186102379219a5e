import {html, nothing, render} from "lit-html";
import type {Mode} from "../session/Session.js";

const debuggerKeys = [["Next", "n"], ["Step", "s"], ["Return", "r"], ["Continue", "c"], ["Quit", "q"]] as const;

/** A field for what code asks for: plain text, a password, a line for the debugger, or a key. */
export class PromptField {
    private history: string[] = [];
    private position = 0;
    private isDebugger = false;
    isSecret = false;

    constructor(private readonly element: HTMLElement, private readonly onAnswer: (text: string) => void) {}

    show(mode: Mode, label: string): void {
        this.isSecret = mode === "password";
        this.isDebugger = mode === "debugger";
        if (mode === "pause") {
            render(html`<span class="prompt-label">Paused: press any key</span>
                <button type="button" class="answer" @click=${() => this.onAnswer("")} @keydown=${(event: KeyboardEvent) => this.anyKey(event)}>Go on</button>`, this.element);
            return;
        }
        const {isSecret} = this, name = label.trim() || "Input";
        render(html`<form @submit=${(event: Event) => this.submit(event)}>
            <label class="prompt-label" for="answer">${label || "Input:"}</label>
            ${isSecret
                ? html`<input id="answer" class="answer" type="password" autocomplete="off" aria-label=${name}>`
                : html`<input id="answer" class="answer" type="text" autocomplete="off" autocapitalize="off" spellcheck="false" aria-label=${name}
                    @keydown=${(event: KeyboardEvent) => mode === "debugger" && this.recall(event)}>`}
            ${mode === "debugger" ? debuggerKeys.map(([text, key]) => html`<button type="button" @click=${() => this.onAnswer(key)}>${text}</button>`) : nothing}
            <button type="submit">Send</button></form>`, this.element);
    }

    get hasFocus(): boolean {
        return this.field?.matches(":focus") ?? false;
    }

    get text(): string {
        return this.field instanceof HTMLInputElement ? this.field.value : "";
    }

    set text(text: string) {
        if (this.field instanceof HTMLInputElement) this.field.value = text;
    }

    focus(): void {
        this.field?.focus();
    }

    hide(): void {
        render(nothing, this.element);
    }

    private get field(): HTMLElement | null {
        return this.element.querySelector<HTMLElement>(".answer");
    }

    private submit(event: Event): void {
        event.preventDefault();
        const {text} = this;
        this.text = "";
        if (this.isDebugger && text !== "") this.history = [...this.history.filter(each => each !== text), text].slice(-200);
        this.position = this.history.length;
        this.onAnswer(text);
    }

    private recall(event: KeyboardEvent): void {
        const by = {ArrowUp: -1, ArrowDown: 1}[event.key];
        const text = by === undefined ? undefined : this.history[this.position + by];
        if (text === undefined) return;
        this.position += by!;
        this.text = text;
        event.preventDefault();
    }

    private anyKey(event: KeyboardEvent): void {
        if (["Tab", "Shift", "Control", "Alt", "Meta", "F6", "Enter", " "].includes(event.key) || event.ctrlKey || event.metaKey) return;
        event.preventDefault();
        this.onAnswer("");
    }
}
