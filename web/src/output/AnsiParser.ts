// Escape sequences in printed text. Understood are colours and letter styles (SGR) and the erasing of a line; all others are removed, and so are
// control characters but for those that ControlText acts on. A sequence may be cut anywhere between two texts, and so may a surrogate pair.

import {Rendition, type Style} from "./Rendition.js";

export interface Sink {
    /** text[from, to), which may contain tabs and newlines; in `style`, undefined for none. */
    text(text: string, from: number, to: number, style: Style | undefined): void;
    /** One of \r \b \f \v. */
    control(character: string): void;
    /** 0 from the cursor to the end, 1 from the start to the cursor, 2 all. */
    eraseLine(mode: number): void;
}

const special = /[\x00-\x08\x0b-\x1f\x7f-\x9f]/g;
const csi = /\x1b\[([\x30-\x3f]*)([\x20-\x2f]*)([\x40-\x7e])/y;
const shortSequence = /\x1b[\x20-\x2f]*[\x30-\x7e]/y;
// OSC, DCS, SOS, PM and APC: text up to a terminator. A newline ends them, too, so that one that is never ended hides one line at most.
const stringStart = /\x1b[\]PX^_]/y;
const stringEnd = /[\x07\x18\x1a\x1b\x9c\n]/g;
const unfinished = /\x1b(?:\[[\x30-\x3f]*)?[\x20-\x2f]*$/y;
const longestSequence = 256;

const isHighSurrogate = (code: number): boolean => code >= 0xd800 && code < 0xdc00;

/** Result: where `pattern` ends if it matches at `at`, else -1. */
function endOf(pattern: RegExp, text: string, at: number): number {
    pattern.lastIndex = at;
    return pattern.test(text) ? pattern.lastIndex : -1;
}

export class AnsiParser {
    private readonly sgr = new Rendition();
    private cut = "";
    private isInString = false;

    parse(text: string, sink: Sink): void {
        const isCut = isHighSurrogate(text.charCodeAt(text.length - 1));
        const half = isCut ? text.slice(-1) : "";
        text = this.cut + (isCut ? text.slice(0, -1) : text);
        this.cut = "";
        let at = this.isInString ? this.skipString(text, 0) : 0;
        while (at < text.length) {
            special.lastIndex = at;
            const next = special.exec(text)?.index ?? text.length;
            if (next > at) sink.text(text, at, next, this.sgr.style);
            at = next < text.length ? this.acceptSpecial(text, next, sink) : next;
        }
        this.cut += half;
    }

    /** Result: where parsing goes on. */
    private acceptSpecial(text: string, at: number, sink: Sink): number {
        const character = text[at]!;
        if (character !== "\x1b") {
            if ("\r\b\f\v".includes(character)) sink.control(character);
            return at + 1;
        }
        csi.lastIndex = at;
        const found = csi.exec(text);
        if (found) {
            if (found[3] === "m" && !found[2]) this.sgr.apply(found[1]!);
            else if (found[3] === "K" && /^[012]?$/.test(found[1]!)) sink.eraseLine(Number(found[1]));
            return csi.lastIndex;
        }
        if (endOf(stringStart, text, at) > 0) return this.skipString(text, at + 2);
        if (endOf(unfinished, text, at) > 0) {
            if (text.length - at <= longestSequence) this.cut = text.slice(at);
            return text.length;
        }
        if (text[at + 1] !== "[") return Math.max(endOf(shortSequence, text, at), at + 1);
        // A CSI with a character that cannot be in it: what is readable begins there.
        return endOf(/\x1b\[[\x20-\x3f]*/y, text, at);
    }

    private skipString(text: string, at: number): number {
        stringEnd.lastIndex = at;
        const end = stringEnd.exec(text)?.index;
        this.isInString = end === undefined;
        if (end === undefined) return text.length;
        return text[end] === "\x1b" || text[end] === "\n" ? end : end + 1;  // ESC \ is removed as a sequence
    }
}
