import {html, nothing, render} from "lit-html";
import type {Output} from "../output/api.js";
import {Find, type FindState} from "../output/Find.js";
import {make} from "../rich/dom.js";

const slowRows = 50_000, pauseMs = 150;

/** Find in the log. The browser's own is better in short logs; in long ones it stops the page. */
export class FindBar {
    readonly element = make("search", "find-bar");
    private search: Find | undefined;
    private timer: ReturnType<typeof setTimeout> | undefined;

    constructor(private readonly log: Output, private readonly onClose: () => void) {
        this.element.hidden = true;
        this.element.addEventListener("keydown", event => this.pressed(event));
    }

    get isOpen(): boolean {
        return !this.element.hidden;
    }

    /** Ctrl+F: whether it is ours. Pressed again, it is the browser's. */
    takesKey(): boolean {
        return this.log.size.rows >= slowRows && !this.isOpen;
    }

    open(): void {
        this.element.hidden = false;
        this.update({count: 0, position: 0, isDone: true});
        const field = this.element.querySelector("input")!;
        field.focus();
        field.select();
        if (field.value) this.start(field.value);
    }

    close(): void {
        clearTimeout(this.timer);
        this.search?.close();
        this.search = undefined;
        this.element.hidden = true;
        this.onClose();
    }

    step(isBack: boolean): void {
        if (isBack) this.search?.previous();
        else this.search?.next();
    }

    private start(query: string): void {
        clearTimeout(this.timer);
        this.timer = setTimeout(() => {
            this.search?.close();
            this.search = query === "" ? undefined : new Find(this.log, query, {onChange: state => this.update(state)});
            if (!this.search) this.update({count: 0, position: 0, isDone: true});
        }, pauseMs);
    }

    private update({count, position, isDone}: FindState): void {
        const text = !this.search ? "" : count === 0 && isDone ? "Not found" : `${position} of ${count.toLocaleString("en")}${isDone ? "" : "\u2026"}`;
        render(html`<input type="search" aria-label="Find in the log" placeholder="Find" @input=${(event: Event) => this.start((event.target as HTMLInputElement).value)}>
            <span role="status">${text || nothing}</span>
            <button type="button" @click=${() => this.step(true)}>Previous</button>
            <button type="button" @click=${() => this.step(false)}>Next</button>
            <button type="button" @click=${() => this.close()}>Close</button>`, this.element);
    }

    private pressed(event: KeyboardEvent): void {
        if (event.key === "Escape") this.close();
        else if (event.key === "Enter" || event.key === "F3") this.step(event.shiftKey);
        else return;
        event.preventDefault();
        event.stopPropagation();
    }
}
