import {button, make} from "./dom.js";
import {type AskRows, type Slice, TableRows} from "./TableRows.js";

export interface TableHandlers {
    /** The first rows have come. */
    onReady?(): void;
    /** There is no such table any more. */
    onGone?(text: string): void;
}

/** Beyond, browsers do not scroll, in device pixels. */
const tallest = 30e6;
const outOfView = 4, widest = 40, widestLabel = 16;
/** Of more columns only those in view are in the page, too. */
const fewColumns = 30;

/** A table of any length with its own scroller: the rows in view are in the page, and are asked for as they come into view. */
export class TableView {
    readonly element = make("div", "table");
    private readonly scroller = make("div", "table-scroll");
    private readonly sheet = make("div", "table-sheet");
    private readonly head = make("div", "table-row table-head");
    private readonly body = make("div", "table-body");
    private readonly size = make("span", "");
    private readonly status = make("span", "table-status");
    private readonly rows: TableRows;
    private readonly shown = new Map<number, HTMLElement>();
    private slice: Slice | undefined;
    private titles = "";
    private widths: number[] = [];
    /** The columns that rows have now. */
    private columns = {from: 0, to: 0};
    /** The row at the top, with the part of it that is out of view. */
    private top = 0;
    /** Where the scroller stands that this has put there. */
    private known = 0;

    constructor(label: string, ask: AskRows, private readonly handlers: TableHandlers = {}) {
        this.rows = new TableRows(ask, {
            onSlice: slice => this.take(slice),
            onError: error => this.failed(error),
            onLate: () => this.status.replaceChildren("There is no answer yet. The rows come when the interpreter answers."),
        });
        Object.assign(this.scroller, {tabIndex: 0, role: "group", ariaLabel: label});
        Object.assign(this.sheet, {role: "table", ariaLabel: label});
        Object.assign(this.head, {role: "row", ariaRowIndex: "1"});
        this.body.role = "rowgroup";
        this.status.ariaLive = "polite";
        this.sheet.append(this.head, this.body);
        this.scroller.append(this.sheet);
        this.element.append(this.scroller, make("div", "table-foot quiet", this.size, this.status));
        this.scroller.addEventListener("scroll", () => this.scrolled());
        this.scroller.addEventListener("keydown", event => this.pressed(event));
        this.element.addEventListener("copy", event => this.copied(event));
        const resized = new ResizeObserver(() => this.draw());
        for (const each of [this.scroller, this.head]) resized.observe(each);
        this.rows.want(0, 1);
    }

    /** The table may have changed. */
    refresh(): void {
        this.rows.refresh();
    }

    private take(slice: Slice): void {
        const isFirst = this.slice === undefined;
        this.slice = slice;
        this.status.replaceChildren();
        this.size.textContent = sizeOf(slice);
        this.sheet.ariaRowCount = String(slice.rows + 1);
        this.sheet.ariaColCount = String(slice.columns + slice.levels.length);
        this.widen(slice);
        this.showTitles(slice);
        this.forget(slice.begin, slice.begin + slice.cells.length);
        if (isFirst) this.handlers.onReady?.();
        this.draw();
    }

    private showTitles({levels, names, dtypes, numeric}: Slice): void {
        const titles = JSON.stringify([levels, names, dtypes, numeric]);
        if (titles === this.titles) return;
        this.titles = titles;
        this.head.replaceChildren(...levels.map(name => headOf(name, "Row", "table-label")),
            ...names.map((name, at) => headOf(name, "Value", numeric[at] ? "is-number" : "", dtypes[at])));
        endLine(this.head);
    }

    private failed({code, message}: Error & {code?: string}): void {
        const text = message.replace(/^\w+: /, "");  // the class of the error
        if (code === "failed" && this.handlers.onGone) return this.handlers.onGone(text);
        this.status.replaceChildren(`The rows could not be fetched: ${text} `, button("Try again", () => this.slice ? this.draw() : this.rows.want(0, 1)));
    }

    // Columns become wider as longer texts come, and never narrower, so that nothing moves to and fro.
    private widen({levels, names, dtypes, index, cells}: Slice): void {
        const longest = (at: number, rows: string[][], title: string) => rows.reduce((width, row) => Math.max(width, row[at]!.length), title.length);
        const wanted = [...levels.map((name, at) => Math.min(widestLabel, longest(at, index, name))),
            ...names.map((name, at) => Math.min(widest, Math.max(longest(at, cells, name), (dtypes[at]?.length ?? 0) * 0.85)))];
        this.widths = wanted.map((width, at) => Math.max(3, width, this.widths[at] ?? 0));
        const columns = this.widths.map(width => `calc(${width}ch + 1.3em)`).join(" ");
        if (columns !== this.sheet.style.getPropertyValue("--table-columns")) this.sheet.style.setProperty("--table-columns", columns);
    }

    private measures(): {line: number; height: number; view: number; ratio: number} {
        const line = parseFloat(getComputedStyle(this.body).lineHeight), all = (this.slice?.rows ?? 0) * line;
        const height = Math.min(all, tallest / devicePixelRatio), view = this.scroller.clientHeight - this.head.offsetHeight;
        return {line, height, view, ratio: height < all ? (all - view) / (height - view) : 1};
    }

    private columnsInView(): {from: number; to: number} {
        const {levels, names} = this.slice!;
        if (names.length <= fewColumns) return {from: 0, to: names.length};
        const {scrollLeft, clientWidth} = this.scroller, titles = [...this.head.children].slice(levels.length) as HTMLElement[];
        const from = titles.findIndex(({offsetLeft, offsetWidth}) => offsetLeft + offsetWidth > scrollLeft);
        return {from, to: titles.findLastIndex(({offsetLeft}) => offsetLeft < scrollLeft + clientWidth) + 1};
    }

    /** Takes rows away that are to be made anew. */
    private forget(from: number, to: number): void {
        for (const [at, row] of this.shown) {
            if (at < from || at >= to) continue;
            row.remove();
            this.shown.delete(at);
        }
    }

    private scrolled(): void {
        const {scrollTop} = this.scroller;
        if (scrollTop === this.known) return this.draw();
        const {line, ratio} = this.measures();
        this.known = scrollTop;
        this.top = (scrollTop * ratio) / line;
        this.draw();
    }

    private draw(): void {
        if (!this.slice || !this.scroller.isConnected) return;
        const {line, height, view} = this.measures();
        this.sheet.style.height = `${this.head.offsetHeight + height}px`;
        const from = Math.max(0, Math.floor(this.top) - outOfView), to = Math.min(this.slice.rows, Math.ceil(this.top + view / line) + outOfView);
        this.body.style.transform = `translateY(${this.scroller.scrollTop + (from - this.top) * line}px)`;
        const columns = this.columnsInView(), areSame = columns.from === this.columns.from && columns.to === this.columns.to;
        this.columns = columns;
        this.forget(0, areSame ? from : Infinity);
        this.forget(to, Infinity);
        for (let at = from; at < to; ++at) {
            if (!this.shown.has(at)) this.shown.set(at, this.rowAt(at));
            const row = this.shown.get(at)!, place = this.body.children[at - from];
            if (row !== place) this.body.insertBefore(row, place ?? null);
        }
        this.rows.want(from, to);
    }

    private rowAt(at: number): HTMLElement {
        const found = this.rows.row(at), row = make("div", "table-row");
        row.role = "row";
        row.ariaRowIndex = String(at + 2);
        if (found) {
            row.append(...found.labels.map(label => cell("rowheader", label, "table-label")),
                ...found.cells.slice(this.columns.from, this.columns.to).map((text, at) => this.cellAt(text, this.columns.from + at, found)));
        } else row.append(cell("cell", "\u2026", "quiet"));
        endLine(row);
        return row;
    }

    private cellAt(text: string, column: number, {labels, numeric}: {labels: string[]; numeric: boolean[]}): HTMLElement {
        const element = cell("cell", text, numeric[column] ? "is-number" : ""), place = String(labels.length + column + 1);
        element.style.gridColumn = place;
        element.ariaColIndex = place;
        return element;
    }

    private pressed(event: KeyboardEvent): void {
        if (!this.slice || event.altKey || event.ctrlKey || event.metaKey) return;
        const {line, view, ratio} = this.measures(), page = Math.max(1, Math.floor(view / line) - 1), last = Math.max(0, this.slice.rows - view / line);
        const to = {ArrowUp: this.top - 1, ArrowDown: this.top + 1, PageUp: this.top - page, PageDown: this.top + page, Home: 0, End: last}[event.key];
        if (to === undefined) return;
        event.preventDefault();
        this.top = Math.max(0, Math.min(last, to));
        this.scroller.scrollTop = (this.top * line) / ratio;
        this.known = this.scroller.scrollTop;
        this.draw();
    }

    // As rows of cells between tabs.
    private copied(event: ClipboardEvent): void {
        const selection = document.getSelection();
        if (!event.clipboardData || !selection || selection.isCollapsed) return;
        const range = selection.getRangeAt(0);
        if (!this.sheet.contains(range.commonAncestorContainer)) return;
        event.clipboardData.setData("text/plain", range.toString().replace(/[\t\n]$/, ""));
        event.preventDefault();
        event.stopPropagation();
    }
}

function sizeOf({rows, columns, names}: Slice): string {
    const count = (number: number, what: string) => `${number.toLocaleString("en")} ${what}${number === 1 ? "" : "s"}`;
    const text = `${count(rows, "row")}, ${count(columns, "column")}`;
    return names.length < columns ? `${text}, of which the first ${names.length} are shown. ` : `${text}. `;
}

// The tab is for copies.
function cell(role: string, text: string, className: string): HTMLElement {
    const element = make("div", className, `${text}\t`);
    element.role = role;
    if (text.length > widestLabel) element.title = text;
    return element;
}

/** `title` is for those who do not see a column without a name. */
function headOf(name: string, title: string, className: string, dtype?: string | null): HTMLElement {
    const element = cell("columnheader", name, className);
    if (name === "") element.append(make("span", "visually-hidden", title));
    if (dtype) element.append(make("span", "table-type", dtype));
    return element;
}

function endLine(row: HTMLElement): void {
    const text = row.lastElementChild?.firstChild;
    if (text) text.textContent = text.textContent!.replace(/\t$/, "\n");
}
