import type {Output} from "./api.js";
import {shownUnits} from "./shown.js";

const millisecondsPerSlice = 8, mostMarks = 2000;

export interface FindOptions {
    matchCase?: boolean;
    /** Called after each slice of the search and each step. */
    onChange?: (state: FindState) => void;
}

export interface FindState {
    count: number;
    /** 1 for the first match, 0 if none is chosen. */
    position: number;
    /** false while the search still runs. */
    isDone: boolean;
}

interface Found {
    unit: HTMLElement;
    count: number;
}

/**
 * One search over what is shown, in slices of 8 ms; it chooses the last match at first. What is in view is marked by highlights of the
 * browser, the document does not change. There is one at a time.
 */
export class Find {
    readonly state: FindState = {count: 0, position: 0, isDone: false};
    private readonly units: HTMLElement[];
    private readonly pattern: RegExp;
    private readonly changed: (state: FindState) => void;
    private readonly found: Found[] = [];
    private readonly stop = new AbortController();
    private isMarkRequested = false;
    private readonly region: HTMLElement;

    constructor(log: Output, query: string, options: FindOptions = {}) {
        log.flush();
        const {region} = log, {signal} = this.stop;
        this.region = region;
        this.pattern = new RegExp(query.replace(/[\\^$.*+?()[\]{}|]/g, "\\$&"), options.matchCase ? "gu" : "giu");
        this.changed = options.onChange ?? (() => {});
        this.units = query === "" ? [] : shownUnits(region);
        // Blocks that come into view get new nodes.
        for (const event of ["scroll", "contentvisibilityautostatechange"])
            region.addEventListener(event, () => this.requestMarks(), {signal, passive: true, capture: true});
        setTimeout(() => this.slice(0));
    }

    next(): void {
        this.step(1);
    }

    previous(): void {
        this.step(-1);
    }

    /** Takes the marks away and ends a search that still runs. */
    close(): void {
        this.stop.abort();
        CSS.highlights.delete("find");
        CSS.highlights.delete("find-current");
    }

    /** Marks what is in view, in the next frame. */
    private requestMarks(): void {
        if (this.isMarkRequested || this.stop.signal.aborted) return;
        this.isMarkRequested = true;
        requestAnimationFrame(() => {
            this.isMarkRequested = false;
            if (!this.stop.signal.aborted) this.mark();
        });
    }

    private slice(from: number): void {
        if (this.stop.signal.aborted) return;
        const end = performance.now() + millisecondsPerSlice;
        let i = from;
        while (i < this.units.length && performance.now() < end) this.search(this.units[i++]!);
        this.state.isDone = i >= this.units.length;
        if (!this.state.isDone) setTimeout(() => this.slice(i));
        else if (this.state.count > 0) return this.choose(this.state.count);
        this.changed(this.state);
    }

    private search(unit: HTMLElement): void {
        const count = unit.textContent!.match(this.pattern)?.length ?? 0;
        if (count === 0) return;
        this.found.push({unit, count});
        this.state.count += count;
    }

    private step(by: number): void {
        while (this.found.length > 0 && !this.found[0]!.unit.isConnected) {
            const {count} = this.found.shift()!;  // not kept any more
            this.state.count -= count;
            this.state.position = Math.max(0, this.state.position - count);
        }
        const {count, position} = this.state;
        if (count > 0) this.choose((position - 1 + by + count) % count + 1);
        else this.changed(this.state);
    }

    private choose(position: number): void {
        this.state.position = position;
        const range = this.current();
        if (range) {
            reveal(this.region, range);
            CSS.highlights.set("find-current", new Highlight(range));
        }
        this.requestMarks();
        this.changed(this.state);
    }

    private current(): Range | undefined {
        let before = this.state.position - 1;
        for (const {unit, count} of this.found) {
            if (before < count) return this.rangesIn(unit, before, 1)[0];
            before -= count;
        }
        return undefined;
    }

    private mark(): void {
        const view = this.region.getBoundingClientRect();
        let low = 0, high = this.found.length;
        while (low < high) {
            const middle = (low + high) >> 1;
            if (this.found[middle]!.unit.getBoundingClientRect().bottom < view.top) low = middle + 1;
            else high = middle;
        }
        const ranges: Range[] = [];
        for (let i = low; i < this.found.length && ranges.length < mostMarks; ++i) {
            const {unit} = this.found[i]!;
            if (unit.getBoundingClientRect().top > view.bottom) break;
            ranges.push(...this.rangesIn(unit, 0, mostMarks - ranges.length));
        }
        CSS.highlights.set("find", new Highlight(...ranges));
        const current = this.current();
        if (current) CSS.highlights.set("find-current", new Highlight(current));
    }

    /** Matches of `unit`, from the one with the index `first`. */
    private rangesIn(unit: HTMLElement, first: number, most: number): Range[] {
        const places = [...unit.textContent!.matchAll(this.pattern)].slice(first, first + most);
        const walker = document.createTreeWalker(unit, NodeFilter.SHOW_TEXT);
        let node = walker.nextNode() as Text | null, begin = 0;
        const boundary = (offset: number): [Node, number] => {
            while (node && begin + node.length < offset) {
                begin += node.length;
                node = walker.nextNode() as Text | null;
            }
            return node ? [node, offset - begin] : [unit, unit.childNodes.length];
        };
        return places.map(({0: {length}, index}) => {
            const range = document.createRange();
            range.setStart(...boundary(index));
            range.setEnd(...boundary(index + length));
            return range;
        });
    }
}

/** Scrolls `range` into view; twice, for what comes into view gets its true height only then. */
function reveal(region: HTMLElement, range: Range): void {
    for (let i = 0; i < 2; ++i) {
        const view = region.getBoundingClientRect(), {top, bottom} = range.getBoundingClientRect();
        if (top >= view.top && bottom <= view.bottom) return;
        region.scrollTop += top - view.top - view.height / 2;
    }
}
