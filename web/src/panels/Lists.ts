import {html, render} from "lit-html";
import {type FigureStore, nameOf} from "../rich/FigureView.js";
import {make} from "../rich/dom.js";
import type {History} from "../session/History.js";
import type {Panel} from "./Panels.js";

const shown = 200;

/** The figures that are kept, the newest first; a click leads to the one in the log. */
export class FiguresPanel implements Panel {
    readonly name = "Figures";
    readonly element = make("div", "figures");
    private store: FigureStore | undefined;

    constructor(store: Promise<FigureStore>) {
        void store.then(store => {
            this.store = store;
            store.onChange = () => this.update();
            this.update();
        });
        this.update();
    }

    show(): void {}

    private update(): void {
        const all = [...(this.store?.all ?? [])].reverse();
        render(all.length === 0 ? html`<p class="quiet">No figures.</p>` : all.map(({figure, url, node}) => html`<button type="button" class="thumbnail"
            @click=${() => node.scrollIntoView({block: "center"})}><img src=${url} alt=""><span>${nameOf(figure)}</span></button>`), this.element);
    }
}

/** What was entered, the newest first; a click puts it into the editor. */
export class HistoryPanel implements Panel {
    readonly name = "History";
    readonly element = make("div", "history");
    private filter = "";

    constructor(private readonly history: History, private readonly onPick: (code: string) => void) {}

    show(isShown: boolean): void {
        if (isShown) this.update();
    }

    /** To search in it. */
    focus(): void {
        this.element.querySelector("input")?.focus();
    }

    update(): void {
        const fitting = this.history.all.filter(code => code.toLowerCase().includes(this.filter.toLowerCase())).slice(-shown).reverse();
        render(html`<input type="search" placeholder="Search" aria-label="Search the history" .value=${this.filter}
                @input=${(event: Event) => {
                    this.filter = (event.target as HTMLInputElement).value;
                    this.update();
                }}
                @keydown=${(event: KeyboardEvent) => {
                    if (event.key !== "Enter" || fitting[0] === undefined) return;
                    event.preventDefault();  // or the editor, which has the focus then, takes it
                    this.onPick(fitting[0]);
                }}>
            ${fitting.length === 0 ? html`<p class="quiet">Nothing yet.</p>` : ""}
            <ol>${fitting.map(code => html`<li><button type="button" @click=${() => this.onPick(code)}><code>${code}</code></button></li>`)}</ol>`, this.element);
    }
}

/** What the interpreter says of a name. */
export class HelpPanel implements Panel {
    readonly name = "Help";
    readonly element = make("div", "help", make("p", "quiet", "Ctrl+I in the editor tells about the name at the cursor."));

    show(): void {}

    tell(text: string): void {
        this.element.replaceChildren(make("pre", "", text));
    }
}
