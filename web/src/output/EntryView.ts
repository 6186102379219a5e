import type {EntryEnd, EntryHandle, EntryStart, Part, Stream} from "./api.js";
import {Box} from "./Box.js";
import {EntryText} from "./EntryText.js";
import {entryHead, type EntryHead} from "./entryHead.js";
import {textOfParts} from "./textOf.js";

/** What an entry needs of its log. */
export interface EntryLog {
    /** Queues `run`, which appends `size` characters. */
    later(size: number, run: () => void): void;
    flush(): void;
    added(items: number, characters: number): void;
    /** Output was appended to `entry`. */
    written(entry: EntryView, text: string): void;
}

const longestPiece = 32768;

/** One evaluation: its head with the code, if it has any, and what came out. What changes it waits in the log's queue. */
export class EntryView implements EntryHandle {
    readonly box = Box.make("entry", undefined, "article");
    readonly element = this.box.element;
    result: EntryEnd | undefined;
    isCleared = false;
    /** Not kept any more; what comes for it is not shown. */
    isGone = false;
    private readonly head: EntryHead | undefined;
    private readonly output: EntryText;

    constructor(readonly start: EntryStart, private readonly log: EntryLog) {
        this.element.tabIndex = -1;
        if (!start.isOwn) this.element.classList.add("is-other");
        if (start.code !== "") {
            this.element.classList.add("is-running");
            this.element.append((this.head = entryHead(start)).element);
        }
        this.box.addRows(this.codeRows);
        const body = Box.make("entry-body", this.box);
        this.output = new EntryText(body, (items, characters) => log.added(items, characters));
        this.showName();
    }

    get codeRows(): number {
        return this.start.code === "" ? 0 : this.start.code.split("\n").length;
    }

    write(text: string, stream: Stream): void {
        for (let from = 0; from < text.length;) {
            let to = Math.min(from + longestPiece, text.length);
            if (to < text.length && /[\ud800-\udbff]/.test(text[to - 1]!)) --to;
            const piece = text.slice(from, to);
            this.log.later(piece.length, () => {
                if (this.isGone) return;
                this.output.write(piece, stream);
                this.log.written(this, piece);
            });
            from = to;
        }
    }

    place(node: HTMLElement, rows: number, characters = 0): void {
        this.log.later(characters, () => this.isGone || this.output.place(node, rows, characters));
    }

    notice(text: string): void {
        this.log.later(text.length, () => this.isGone || this.output.notice(text));
    }

    clear(): void {
        this.log.later(0, () => this.output.hide());
    }

    end(end: EntryEnd): void {
        this.result = end;
        this.log.later(0, () => {
            this.output.closeBlock();
            this.element.classList.remove("is-running");
            this.element.classList.toggle("is-error", end.isError);
            this.head?.end(end);
        });
    }

    setNumber(number: number): void {
        this.start.number = number;
        this.showName();
    }

    setLabel(text: string): void {
        this.log.later(0, () => this.head?.setLabel(text));
    }

    fold(isFolded: boolean): void {
        this.element.classList.toggle("is-folded", isFolded);
        this.head?.setFolded(isFolded);
    }

    parts(): Part[] {
        this.log.flush();
        return this.output.parts();
    }

    text(): string {
        return textOfParts(this.parts());
    }

    /** Hides what stands here now. */
    hide(): void {
        this.isCleared = this.result !== undefined;
        if (this.isCleared) this.element.classList.add("is-cleared");
        else {
            this.head?.element.classList.add("is-cleared");
            this.output.hide();
        }
    }

    removeOldest(): {rows: number; length: number} | undefined {
        return this.output.removeOldest(this.result !== undefined);
    }

    private showName(): void {
        const {code, number} = this.start;
        this.element.ariaLabel = code === "" ? "Output" : number === undefined ? "Evaluation" : `Evaluation ${number}`;
        if (number !== undefined) this.head?.setNumber(number);
    }
}
