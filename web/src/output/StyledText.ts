import type {Style} from "./Rendition.js";

/** Text with the runs of it that have a style: starts and ends as offsets, in order and apart from each other. */
export class StyledText {
    text = "";
    readonly starts: number[] = [];
    readonly ends: number[] = [];
    readonly styles: Style[] = [];

    get length(): number {
        return this.text.length;
    }

    append(text: string, style: Style | undefined): void {
        if (style) this.addRun(this.text.length, this.text.length + text.length, style);
        this.text += text;
    }

    appendAll(other: StyledText): void {
        const {length} = this.text;
        for (let i = 0; i < other.styles.length; ++i) this.addRun(length + other.starts[i]!, length + other.ends[i]!, other.styles[i]!);
        this.text += other.text;
    }

    /** Puts `text` in place of [from, to). */
    replace(from: number, to: number, text: string, style: Style | undefined): void {
        const old = {text: this.text, starts: [...this.starts], ends: [...this.ends], styles: [...this.styles]};
        const shift = text.length - (to - from);
        this.clear();
        old.styles.forEach((each, i) => this.addRun(old.starts[i]!, Math.min(old.ends[i]!, from), each));
        if (style) this.addRun(from, from + text.length, style);
        old.styles.forEach((each, i) => this.addRun(Math.max(old.starts[i]!, to) + shift, old.ends[i]! + shift, each));
        this.text = old.text.slice(0, from) + text + old.text.slice(to);
    }

    clear(): void {
        this.text = "";
        this.starts.length = this.ends.length = this.styles.length = 0;
    }

    /** Takes [from, to) of the runs of `other` over, moved by `shift`. Result: the first run of it that goes beyond `to`. */
    takeRuns(other: StyledText, from: number, to: number, shift: number, firstRun: number): number {
        let i = firstRun;
        for (; i < other.styles.length && other.starts[i]! < to; ++i) {
            this.addRun(Math.max(other.starts[i]!, from) + shift, Math.min(other.ends[i]!, to) + shift, other.styles[i]!);
            if (other.ends[i]! > to) break;
        }
        return i;
    }

    private addRun(start: number, end: number, style: Style): void {
        if (start >= end) return;
        const last = this.styles.length - 1;
        if (this.styles[last] === style && this.ends[last] === start) {
            this.ends[last] = end;
            return;
        }
        this.starts.push(start);
        this.ends.push(end);
        this.styles.push(style);
    }
}
