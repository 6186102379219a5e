import {Box} from "./Box.js";
import {ControlText} from "./ControlText.js";
import type {Part, Stream} from "./api.js";
import {Notice} from "./Notice.js";
import {StyledText} from "./StyledText.js";
import {TextBlock} from "./TextBlock.js";

const blocksInGroup = 48;
const noLine = new StyledText();

/** What stands in an entry: blocks of text, notices and placed nodes, in groups. */
export interface Item {
    readonly box: Box;
    readonly length: number;
    part(): Part;
    /** It is taken away: frees what it holds at once. */
    release?(): void;
}

/** What an entry printed and showed, in order. The oldest items can be taken away. */
export class EntryText {
    private items: Item[] = [];
    private group: Box | undefined;
    private block: TextBlock | undefined;
    private readonly controls: Record<Stream, ControlText> = {output: new ControlText(), error: new ControlText()};
    private stream: Stream = "output";

    /** `added` is told of every item that is new, and of all characters. */
    constructor(private readonly box: Box, private readonly added: (items: number, characters: number) => void) {}

    write(text: string, stream: Stream): void {
        if (stream !== this.stream) this.closeBlock();
        this.stream = stream;
        const control = this.controls[stream];
        control.write(text);
        this.takeFinished(control);
        if (control.line.length > 0) this.open().setTail(control.line);
        else this.block?.setTail(control.line);
    }

    place(node: HTMLElement, rows: number, characters: number): void {
        this.closeBlock();
        const box = Box.make("placed", this.groupWithRoom());
        box.element.append(node);
        box.addRows(rows);
        const text = () => node.dataset["copy"] ?? node.textContent ?? "";
        this.addItem({box, length: characters, part: () => ({kind: "node", node, text: text()})});
    }

    notice(text: string): void {
        this.closeBlock();
        this.addItem(new Notice(text, this.groupWithRoom()));
    }

    /** The unfinished line ends here; what follows begins a block of its own. */
    closeBlock(): void {
        const control = this.controls[this.stream];
        control.finishLine();
        this.takeFinished(control);
        this.block?.setTail(control.line);
        this.block = undefined;
    }

    /** Hides what stands here now; what follows is shown. */
    hide(): void {
        this.closeBlock();
        this.group = undefined;
        for (const child of this.box.element.children) child.classList.add("is-cleared");
    }

    parts(): Part[] {
        const parts: Part[] = [];
        for (const item of this.items) {
            const part = item.part(), last = parts.at(-1);
            if (part.kind === "text" && last?.kind === "text" && last.stream === part.stream) last.text += part.text;
            else parts.push(part);
        }
        return parts;
    }

    /** Removes the oldest item. Result: its rows and length; undefined if there is none, or it is still written before the end. */
    removeOldest(isEnded: boolean): {rows: number; length: number} | undefined {
        const item = this.items[0];
        if (!item || (item === this.block && !isEnded)) return undefined;
        if (item === this.block) this.closeBlock();
        this.items.shift();
        const removed = {rows: item.box.rows, length: item.length};
        const group = item.box.parent!;
        item.release?.();
        if (item.box.remove() === 0) {
            group.remove();
            if (group === this.group) this.group = undefined;
        }
        return removed;
    }

    private takeFinished({finished}: ControlText): void {
        for (let at = 0, run = 0; at < finished.length;) {
            const block = this.open();
            const end = block.append(finished, at, run);
            this.added(0, end.to - at);
            if (end.to === at || block.isFull) {
                block.setTail(noLine);
                this.block = undefined;
            }
            at = end.to;
            run = end.run;
        }
        finished.clear();
    }

    private open(): TextBlock {
        if (!this.block) this.addItem(this.block = new TextBlock(this.groupWithRoom(), this.stream));
        return this.block;
    }

    private addItem(item: Item): void {
        this.items.push(item);
        this.added(1, item.length);
    }

    private groupWithRoom(): Box {
        if (!this.group || this.group.count >= blocksInGroup) this.group = Box.make("block-group", this.box);
        return this.group;
    }
}
