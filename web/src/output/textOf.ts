import type {Part} from "./api.js";

/** Puts what is not printed text on lines of its own; printed text follows printed text as it was printed. */
export function joined(pieces: Iterable<{text: string; isPrinted: boolean}>): string {
    const texts: string[] = [];
    let endsInLine = false, wasPrinted = false;
    for (const {text, isPrinted} of pieces) {
        if (text === "") continue;
        if (endsInLine && !(isPrinted && wasPrinted)) texts.push("\n");
        texts.push(text);
        endsInLine = !text.endsWith("\n");
        wasPrinted = isPrinted;
    }
    return texts.join("");
}

export const textOfParts = (parts: Part[]): string => joined(parts.map(({kind, text}) => ({text, isPrinted: kind === "text"})));

/** Copies `text`; where there is no clipboard, as on pages that came over plain HTTP, by the browser's old command. */
export async function copy(text: string): Promise<void> {
    if (navigator.clipboard) return navigator.clipboard.writeText(text);
    document.addEventListener("copy", event => {
        event.clipboardData?.setData("text/plain", text);
        event.preventDefault();
        event.stopImmediatePropagation();
    }, {once: true, capture: true});
    document.execCommand("copy");
}
