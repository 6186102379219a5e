import type {Part, Stream} from "./api.js";
import {Box} from "./Box.js";
import {mayHaveLinks, styledNodes} from "./styledNodes.js";
import {StyledText} from "./StyledText.js";

export const mostRows = 200;
export const mostCharacters = 16384;

const blocks = new WeakMap<Node, TextBlock>();

/**
 * Up to 200 lines or 16 Ki characters of one stream, in one text node; the last, unfinished line stands after it in a node of its own.
 *
 *     plain --dress()--> dressed: spans and anchors instead of the text node, while it is in view
 *           <-undress()-
 */
export class TextBlock {
    readonly box: Box;
    length = 0;
    private readonly runs = new StyledText();  // only its runs; the text is in the document
    private readonly text = document.createTextNode("");
    private tail: HTMLElement | undefined;
    private tailLength = 0;
    private mayHaveLinks = false;
    private isDressed = false;

    constructor(parent: Box, private readonly stream: Stream) {
        this.box = Box.make(stream === "error" ? "block is-error" : "block", parent);
        this.box.element.append(this.text);
        blocks.set(this.box.element, this);
    }

    static at(element: Node): TextBlock | undefined {
        return blocks.get(element);
    }

    part(): Part {
        return {kind: "text", stream: this.stream, text: this.box.element.textContent!};
    }

    get isFull(): boolean {
        return this.box.rows >= mostRows || this.length >= mostCharacters;
    }

    /** Takes of `source`, from `from` on, what fits. Result: where the rest begins, and its first run. */
    append(source: StyledText, from: number, firstRun: number): {to: number; run: number} {
        const {to, rows} = fitting(source.text, from, mostRows - this.box.rows, mostCharacters - this.length, this.length > 0);
        if (to === from) return {to, run: firstRun};
        const text = source.text.slice(from, to);
        const run = this.runs.takeRuns(source, from, to, this.length - from, firstRun);
        if (this.isDressed) this.appendDressed(source, text, from, firstRun);
        else this.text.appendData(text);
        this.mayHaveLinks ||= mayHaveLinks(text);
        this.length += text.length;
        this.box.addRows(rows);
        return {to, run};
    }

    /** Shows the unfinished line; an empty one takes it away. */
    setTail(line: StyledText): void {
        if (line.length === 0 && !this.tail) return;
        if (!this.tail) this.box.element.append(this.tail = document.createElement("span"));
        if (line.styles.length > 0) this.tail.replaceChildren(styledNodes(line.text, line));
        else this.tail.textContent = line.text;
        this.box.addRows(Number(line.length > 0) - Number(this.tailLength > 0));
        this.tailLength = line.length;
    }

    dress(): void {
        if (this.isDressed || !(this.mayHaveLinks || this.runs.styles.length > 0) || this.isSelectionEnd()) return;
        this.isDressed = true;
        this.text.replaceWith(styledNodes(this.text.data, this.runs));
        this.text.data = "";
    }

    /** Result: whether it is plain now; not while a selection begins or ends in it. */
    undress(): boolean {
        if (!this.isDressed) return true;
        if (this.isSelectionEnd()) return false;
        this.isDressed = false;
        this.text.data = this.box.element.textContent!.slice(0, this.length);
        this.box.element.replaceChildren(this.text, ...(this.tail ? [this.tail] : []));
        return true;
    }

    // The collector does not know how much text is in the document.
    release(): void {
        this.undress();
        this.text.data = "";
    }

    private appendDressed(source: StyledText, text: string, from: number, firstRun: number): void {
        const part = new StyledText();
        part.takeRuns(source, from, from + text.length, -from, firstRun);
        this.box.element.insertBefore(styledNodes(text, part), this.tail ?? null);
    }

    private isSelectionEnd(): boolean {
        const selection = document.getSelection();
        return !!selection && !selection.isCollapsed && [selection.anchorNode, selection.focusNode].some(node => this.box.element.contains(node));
    }
}

/** How much of `text` from `from` on is at most so many rows and characters; whole lines, unless one alone is too long for a block. */
function fitting(text: string, from: number, rows: number, characters: number, hasBefore: boolean): {to: number; rows: number} {
    let to = from, count = 0;
    while (count < rows && to < text.length) {
        const newline = text.indexOf("\n", to);
        const end = newline < 0 ? text.length : newline + 1;
        if (end - from > characters) break;
        to = end;
        ++count;
    }
    if (to > from || hasBefore || rows <= 0) return {to, rows: count};
    to = from + characters;
    const first = text.charCodeAt(to - 1);
    return {to: first >= 0xd800 && first < 0xdc00 ? to - 1 : to, rows: 1};
}
