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
// OSC, DCS, SOS, PM and APC: text up to a terminator. A newline ends them, too, so that one that is never ended hides one line at most.
const stringStarts = "]PX^_";
const stringEnd = /[\x07\x18\x1a\x1b\x9c\n]/g;
const longestSequence = 256;

const isHighSurrogate = (code: number): boolean => code >= 0xd800 && code < 0xdc00;

/** Result: where the characters from `low` to `high` that stand from `at` on end. */
function skip(text: string, at: number, low: number, high: number): number {
    let code = text.charCodeAt(at);
    while (code >= low && code <= high) code = text.charCodeAt(++at);
    return at;
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
            const next = special.test(text) ? special.lastIndex - 1 : text.length;
            if (next > at) sink.text(text, at, next, this.sgr.style);
            at = next < text.length ? this.acceptSpecial(text, next, sink) : next;
        }
        this.cut += half;
    }

    /** Result: where parsing goes on. */
    private acceptSpecial(text: string, at: number, sink: Sink): number {
        if (text.charCodeAt(at) === 0x1b) return this.acceptSequence(text, at, sink);
        const character = text[at]!;
        if ("\r\b\f\v".includes(character)) sink.control(character);
        return at + 1;
    }

    private acceptSequence(text: string, at: number, sink: Sink): number {
        const second = text[at + 1] ?? " ";
        if (stringStarts.includes(second)) return this.skipString(text, at + 2);
        const isCsi = second === "[";
        const parameters = at + (isCsi ? 2 : 1);
        const intermediates = isCsi ? skip(text, parameters, 0x30, 0x3f) : parameters;
        const end = skip(text, intermediates, 0x20, 0x2f);
        if (end >= text.length) {
            if (end - at <= longestSequence) this.cut = text.slice(at);
            return text.length;
        }
        const final = text.charCodeAt(end);
        if (final < (isCsi ? 0x40 : 0x30) || final > 0x7e) return end;  // cannot go on so: what is readable begins here
        if (isCsi && end === intermediates) this.acceptCsi(text.slice(parameters, end), text[end]!, sink);
        return end + 1;
    }

    private acceptCsi(parameters: string, final: string, sink: Sink): void {
        if (final === "m") this.sgr.apply(parameters);
        else if (final === "K" && /^[012]?$/.test(parameters)) sink.eraseLine(Number(parameters));
    }

    private skipString(text: string, at: number): number {
        stringEnd.lastIndex = at;
        const end = stringEnd.exec(text)?.index;
        this.isInString = end === undefined;
        if (end === undefined) return text.length;
        return text[end] === "\x1b" || text[end] === "\n" ? end : end + 1;  // ESC \ is removed as a sequence
    }
}
