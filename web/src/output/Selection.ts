import type {Output} from "./api.js";
import {selectedText} from "./shown.js";
import {copy} from "./textOf.js";

// The browser lays out all that is selected: beyond, that takes seconds.
const mostSelectedRows = 20_000;

/**
 * Ctrl+A and copying in the log. All of a small log is selected as everywhere; all of a large one is only shown as selected, by a highlight,
 * until something else is pressed, clicked or selected.
 */
export class Selection {
    private isAll = false;

    constructor(private readonly log: Output) {
        const {region, closed: signal} = log;
        region.addEventListener("keydown", event => this.pressed(event), {signal});
        region.addEventListener("copy", event => this.copied(event), {signal});
        for (const event of ["pointerdown", "blur"]) region.addEventListener(event, () => this.showAll(false), {signal});
        document.addEventListener("selectionchange", () => document.getSelection()?.isCollapsed || this.showAll(false), {signal});
    }

    private pressed(event: KeyboardEvent): void {
        if (["Control", "Meta", "Shift", "Alt"].includes(event.key)) return;
        const isCommand = (event.ctrlKey || event.metaKey) && !event.altKey && !event.shiftKey;
        if (isCommand && event.key === "a") this.selectAll();
        else if (isCommand && event.key === "c" && this.isAll) void copy(this.all());
        else return this.showAll(false);
        event.preventDefault();
        event.stopPropagation();
    }

    private selectAll(): void {
        const isSmall = this.log.size.rows <= mostSelectedRows;
        if (isSmall) document.getSelection()?.selectAllChildren(this.log.region);
        else document.getSelection()?.removeAllRanges();
        this.showAll(!isSmall);
    }

    private copied(event: ClipboardEvent): void {
        const selection = document.getSelection();
        if (!event.clipboardData || !selection || selection.isCollapsed) return;
        event.clipboardData.setData("text/plain", selectedText(this.log.region, selection.getRangeAt(0)));
        event.preventDefault();
    }

    private all(): string {
        return selectedText(this.log.region, this.whole());
    }

    private whole(): Range {
        const range = document.createRange();
        range.selectNodeContents(this.log.region);
        return range;
    }

    private showAll(isAll: boolean): void {
        if (this.isAll === isAll) return;
        this.isAll = isAll;
        if (isAll) CSS.highlights.set("selected-all", new Highlight(this.whole()));
        else CSS.highlights.delete("selected-all");
    }
}
