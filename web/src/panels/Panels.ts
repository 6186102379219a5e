import {html, render} from "lit-html";
import {make} from "../rich/dom.js";
import {keep, kept} from "../session/storage.js";

export interface Panel {
    readonly name: string;
    readonly element: HTMLElement;
    /** It is in view now, or not any more. */
    show(isShown: boolean): void;
}

interface Place {
    tab: string;
    width: number;
    isOpen: boolean;
}

const key = "numora.panels", narrowest = 200, widest = 900, step = 20;
const narrow = matchMedia("(max-width: 720px)");

/** The column of tabs at the right; on narrow screens a sheet. Which tab is shown, and how wide it is, is kept. */
export class Panels {
    readonly element = make("aside", "panels");
    private readonly divider = make("div", "divider");
    private readonly content = make("div", "panel-content");
    private readonly tabs = make("div", "tabs");
    private isSheetOpen = false;
    private readonly place: Place = {tab: "Workspace", width: 380, isOpen: true, ...kept<Partial<Place>>(localStorage, key, {})};

    constructor(private readonly panels: Panel[], signal: AbortSignal) {
        this.element.ariaLabel = "Panels";
        this.tabs.role = "tablist";
        this.tabs.ariaLabel = "Panels";
        this.content.role = "tabpanel";
        this.content.tabIndex = 0;
        Object.assign(this.divider, {role: "separator", ariaLabel: "Width of the panels", ariaOrientation: "vertical", tabIndex: 0,
            ariaValueMin: String(narrowest), ariaValueMax: String(widest)});
        this.divider.addEventListener("pointerdown", event => this.drag(event));
        this.divider.addEventListener("keydown", ({key}) => this.resize(this.place.width + ({ArrowLeft: step, ArrowRight: -step}[key] ?? 0)));
        this.tabs.addEventListener("keydown", event => this.move(event));
        this.element.append(this.divider, this.tabs, this.content);
        this.resize(this.place.width);
        narrow.addEventListener("change", () => {
            this.isSheetOpen = this.element.contains(document.activeElement);
            this.update();
        }, {signal});
        this.update();
    }

    get isOpen(): boolean {
        return this.isSheet ? this.isSheetOpen : this.place.isOpen;
    }

    /** It covers a part of the log, and is not kept open. */
    get isSheet(): boolean {
        return narrow.matches;
    }

    toggle(isOpen = !this.isOpen): void {
        this.open(isOpen);
        this.update();
        if (isOpen) this.tabs.querySelector<HTMLElement>("[aria-selected=true]")?.focus();
    }

    select(name: string): void {
        this.place.tab = name;
        this.open(true);
        this.update();
    }

    private open(isOpen: boolean): void {
        if (this.isSheet) this.isSheetOpen = isOpen;
        else this.place.isOpen = isOpen;
    }

    private update(): void {
        const {place: {tab}, isOpen} = this;
        const current = this.panels.find(({name}) => name === tab) ?? this.panels[0]!;
        render(this.panels.map(({name}) => html`<button type="button" role="tab" aria-selected=${name === current.name} tabindex=${name === current.name ? 0 : -1}
            @click=${() => this.select(name)}>${name}</button>`), this.tabs);
        this.element.hidden = !isOpen;
        this.content.ariaLabel = current.name;
        if (this.content.firstElementChild !== current.element) this.content.replaceChildren(current.element);
        for (const panel of this.panels) panel.show(isOpen && panel === current);
        this.store();
    }

    private move(event: KeyboardEvent): void {
        const by = {ArrowLeft: -1, ArrowRight: 1}[event.key];
        if (by === undefined) return;
        const at = this.panels.findIndex(({name}) => name === this.place.tab);
        this.select(this.panels[(at + by + this.panels.length) % this.panels.length]!.name);
        this.tabs.querySelector<HTMLElement>("[aria-selected=true]")?.focus();
        event.preventDefault();
    }

    private drag(event: PointerEvent): void {
        this.divider.setPointerCapture(event.pointerId);
        const from = this.place.width + event.clientX, abort = new AbortController(), {signal} = abort;
        this.divider.addEventListener("pointermove", ({clientX}) => this.resize(from - clientX), {signal});
        for (const end of ["pointerup", "pointercancel"]) this.divider.addEventListener(end, () => abort.abort(), {signal});
    }

    private resize(width: number): void {
        this.place.width = Math.max(narrowest, Math.min(widest, width));
        this.element.style.setProperty("--panel-width", `${this.place.width}px`);
        this.divider.ariaValueNow = String(this.place.width);
        this.store();
    }

    private store(): void {
        keep(localStorage, key, this.place);
    }
}
