import {AnsiParser, type Sink} from "./AnsiParser.js";
import type {Style} from "./Rendition.js";
import {StyledText} from "./StyledText.js";

/** The length beyond which the start of an unfinished line is finished, so that a line without an end costs no more with its length. */
export const longestLine = 4096;

const isLowSurrogate = (code: number): boolean => code >= 0xdc00 && code <= 0xdfff;

/**
 * One stream of printed text: escape sequences and \r \b \f \v become plain text and styles. They change the last line only, as long as it has
 * no end: what has ended is in `finished`, which the caller takes (and clears), the rest is `line`.
 */
export class ControlText implements Sink {
    readonly finished = new StyledText();
    readonly line = new StyledText();
    private readonly parser = new AnsiParser();
    private cursor = 0;

    write(text: string): void {
        this.parser.parse(text, this);
        if (this.line.length > longestLine) this.finishLine();
    }

    /** Ends the line without a newline. */
    finishLine(): void {
        this.finished.appendAll(this.line);
        this.line.clear();
        this.cursor = 0;
    }

    text(text: string, from: number, to: number, style: Style | undefined): void {
        const end = text.lastIndexOf("\n", to - 1) + 1;
        if (end <= from) return this.put(text.slice(from, to), style);
        let begin = from;
        if (this.cursor !== this.line.length) {
            begin = text.indexOf("\n", from);
            this.put(text.slice(from, begin), style);
        }
        this.finishLine();
        this.finished.append(text.slice(begin, end), style);
        this.put(text.slice(end, to), style);
    }

    control(character: string): void {
        if (character === "\r") this.cursor = 0;
        else if (character === "\b") this.cursor -= this.cursor === 0 ? 0 : isLowSurrogate(this.line.text.charCodeAt(this.cursor - 1)) ? 2 : 1;
        else {
            this.finishLine();
            this.finished.append("\n", undefined);
        }
    }

    eraseLine(mode: number): void {
        const {length} = this.line;
        if (mode === 2 || (mode === 1 && this.cursor >= length)) this.line.clear();
        else if (mode === 1) this.line.replace(0, this.cursor, " ".repeat(this.cursor), undefined);
        else if (this.cursor < length) this.line.replace(this.cursor, length, "", undefined);
    }

    private put(text: string, style: Style | undefined): void {
        if (text === "") return;
        if (this.cursor > this.line.length) this.line.append(" ".repeat(this.cursor - this.line.length), undefined);  // erased
        if (this.cursor === this.line.length) this.line.append(text, style);
        else this.overwrite(text, style);
        this.cursor += text.length;
    }

    private overwrite(text: string, style: Style | undefined): void {
        let to = Math.min(this.cursor + text.length, this.line.length);
        if (isLowSurrogate(this.line.text.charCodeAt(to))) ++to;
        this.line.replace(this.cursor, to, text, style);
    }
}
