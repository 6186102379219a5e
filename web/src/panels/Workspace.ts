import {html, nothing, render} from "lit-html";
import type {Asks} from "../input/Completion.js";
import {make} from "../rich/dom.js";
import type {TableView} from "../rich/TableView.js";
import {sizeText} from "../session/texts.js";
import type {Panel} from "./Panels.js";

interface Variable {
    name: string;
    class: string;
    shape: number[];
    bytes: number;
    text: string;
    table: boolean;
}

const columns = [["Name", "name"], ["Class", "class"], ["Shape", "shape"], ["Size", "bytes"], ["Value", "text"]] as const;
type Column = (typeof columns)[number][1];
const pauseMs = 1000;

/** The variables. A change makes the table stale; it is asked for once a second at most, while it is in view. */
export class Workspace implements Panel {
    readonly name = "Workspace";
    readonly element = make("div", "workspace");
    /** Undefined until they are known. */
    private variables: Variable[] | undefined;
    private filter = "";
    private sort: {column: Column; isUp: boolean} = {column: "name", isUp: true};
    private isShown = false;
    private isStale = true;
    private isAsking = false;
    /** The variable that is open as a table. */
    private opened: {name: string; view: TableView} | undefined;

    constructor(private readonly asks: Asks, private readonly onPick: (name: string) => void) {
        this.update();
    }

    show(isShown: boolean): void {
        this.isShown = isShown;
        this.isStale ||= isShown;
        void this.refresh();
    }

    changed(isEmpty: boolean): void {
        this.isStale = !isEmpty;  // to ask would start an interpreter that has died
        if (isEmpty) {
            this.variables = [];
            this.update();
        }
        void this.refresh();
    }

    private async refresh(): Promise<void> {
        if (!this.isShown || !this.isStale || this.isAsking) return;
        this.isAsking = true;
        this.isStale = false;
        try {
            this.variables = await this.asks.ask<Variable[]>("numora.workspace", []);
            this.update();
            this.opened?.view.refresh();
        } catch {
            // Until the next change, or the panel is shown again.
        }
        setTimeout(() => {
            this.isAsking = false;
            void this.refresh();
        }, pauseMs);
    }

    private async open(name: string): Promise<void> {
        const {TableView} = await import("../rich/Table.js");
        this.close();
        const view = new TableView(`Table ${name}`, (begin, end) => this.asks.ask("numora.rows", [name, begin, end]));
        this.opened = {name, view};
        this.update();
        view.element.querySelector<HTMLElement>(".table-scroll")!.focus();
    }

    private close(): void {
        this.opened = undefined;
        this.update();
    }

    private get rows(): Variable[] {
        const {column, isUp} = this.sort, wanted = this.filter.toLowerCase();
        const value = (each: Variable) => (column === "shape" ? each.shape.reduce((all, one) => all * one, 1) : each[column]);
        const compare = (a: Variable, b: Variable) => {
            const [x, y] = [value(a), value(b)];
            return (typeof x === "number" ? x - (y as number) : x.localeCompare(y as string)) * (isUp ? 1 : -1);
        };
        return (this.variables ?? []).filter(({name, class: type}) => `${name} ${type}`.toLowerCase().includes(wanted)).sort(compare);
    }

    private update(): void {
        const {rows} = this;
        render(html`<input type="search" placeholder="Filter" aria-label="Filter variables" @input=${(event: Event) => {
                this.filter = (event.target as HTMLInputElement).value;
                this.update();
            }}>
            ${!this.variables?.length ? html`<p class="quiet">${this.variables ? "No variables." : "Not known: the interpreter has not answered yet."}</p>` : html`<table>
            <thead><tr>${columns.map(([title, column]) => html`<th scope="col" aria-sort=${this.sort.column === column ? (this.sort.isUp ? "ascending" : "descending") : nothing}>
                <button type="button" @click=${() => this.sortBy(column)}>${title}</button></th>`)}</tr></thead>
            <tbody>${rows.map(each => html`<tr><th scope="row"><div class="variable"><button type="button" title=${`Insert ${each.name}`} @click=${() => this.onPick(each.name)}>${each.name}</button>
                ${each.table ? html`<button type="button" aria-label="Open ${each.name} as a table" title="Open as a table" @click=${() => void this.open(each.name)}>\u25a6</button>` : nothing}</div></th>
                <td>${each.class}</td><td>${each.shape.join("\u00d7")}</td><td>${sizeText(each.bytes)}</td><td class="value" title=${each.text}>${each.text}</td></tr>`)}</tbody></table>`}
            ${this.opened ? html`<div><div class="opened">${this.opened.name} <button type="button" @click=${() => {
                    this.close();
                    this.element.querySelector("input")!.focus();
                }}>Close</button></div>
                ${this.opened.view.element}</div>` : nothing}`, this.element);
    }

    private sortBy(column: Column): void {
        this.sort = {column, isUp: this.sort.column === column ? !this.sort.isUp : true};
        this.update();
    }
}
