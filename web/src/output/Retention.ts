import type {Limits} from "./api.js";
import type {EntryView} from "./EntryView.js";

const farthestDevicePixels = 30e6, farthestPixels = 16e6;  // beyond, browsers cannot scroll
const rowsReadAloud = 100_000;
const mostNodes = 400_000, nodesOfItem = 3, nodesOfEntry = 20;

/** Counts what the log keeps, and says what is too much; the oldest goes first. */
export class Retention {
    readonly line = document.createElement("div");
    readonly entries: EntryView[] = [];
    isReadAloud = false;
    characters = 0;
    private nodes = 0;
    private askedAt = -Infinity;
    private scrollableRows = Infinity;
    private readonly dropped: Limits = {rows: 0, characters: 0};

    constructor(private readonly region: HTMLElement, private readonly limits: Limits) {
        this.line.className = "log-dropped";
        this.line.hidden = true;
    }

    add(items: number, characters: number): void {
        this.nodes += items * nodesOfItem;
        this.characters += characters;
    }

    addEntry(entry: EntryView): void {
        this.entries.push(entry);
        this.nodes += nodesOfEntry;
    }

    isBeyond(rows: number): boolean {
        return rows > this.limits.rows || this.characters > this.limits.characters || this.nodes > mostNodes ||
            (rows > rowsReadAloud && rows > this.mostRowsNow());
    }

    /** Removes the oldest item, or an entry of which nothing is left. Result: false if nothing can go. */
    removeOldest(): boolean {
        const [entry] = this.entries;
        const item = entry?.removeOldest();
        if (item) {
            this.add(-1, -item.length);
            this.countDropped(item.rows, item.length);
            return true;
        }
        if (!entry || (!entry.result && this.entries.length === 1)) return false;
        this.remove(entry);
        this.countDropped(entry.codeRows, entry.start.code.length);
        return true;
    }

    /** Without a word: what the user wants gone. */
    forget(entry: EntryView): void {
        for (let item; (item = entry.removeOldest()) !== undefined;) this.add(-1, -item.length);
        this.remove(entry);
    }

    showDropped(): void {
        const text = this.dropped.rows === 0 ? "" : `${this.dropped.rows.toLocaleString("en")} earlier lines are not kept`;
        if (this.line.textContent === text) return;
        this.line.textContent = text;
        this.line.hidden = text === "";
    }

    private remove(entry: EntryView): void {
        this.entries.splice(this.entries.indexOf(entry), 1);
        this.nodes -= nodesOfEntry;
        entry.isGone = true;
        const batch = entry.box.parent;
        if (entry.box.remove() === 0 && batch?.element !== this.region.lastElementChild) batch?.remove();
    }

    private countDropped(rows: number, characters: number): void {
        this.dropped.rows += rows;
        this.dropped.characters += characters;
    }

    // The line's height, which the user may change, is asked for once a second.
    private mostRowsNow(): number {
        const now = performance.now();
        if (now - this.askedAt > 1000) {
            this.askedAt = now;
            const lineHeight = parseFloat(getComputedStyle(this.region).lineHeight) || 20;
            this.scrollableRows = Math.min(farthestPixels, farthestDevicePixels / devicePixelRatio) / lineHeight;
        }
        return this.isReadAloud ? Math.min(rowsReadAloud, this.scrollableRows) : this.scrollableRows;
    }
}
