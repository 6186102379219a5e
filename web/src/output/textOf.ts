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

/** What is copied and searched, in the order in which it stands. */
export const units = ".entry-code, .block, .notice, .placed";
const hidden = ".is-cleared, .is-folded > .entry-body";

export const shownUnits = (region: HTMLElement): HTMLElement[] =>
    [...region.querySelectorAll<HTMLElement>(units)].filter(unit => !unit.closest(hidden));

/** The text of a selection in the log: without numbers and buttons, and without line ends where blocks meet in a line. */
export function selectedText(region: HTMLElement, range: Range): string {
    return joined(function*() {
        let entry: Element | null = null;
        for (const unit of shownUnits(region)) {
            if (!range.intersectsNode(unit)) continue;
            const within = unit.closest(".entry");
            const isPrinted = unit.classList.contains("block") && within === entry;
            entry = within;
            yield {text: textIn(unit, range), isPrinted};
        }
    }());
}

function textIn(unit: HTMLElement, range: Range): string {
    const startsIn = unit.contains(range.startContainer), endsIn = unit.contains(range.endContainer);
    if (!startsIn && !endsIn) return unit.querySelector<HTMLElement>("[data-copy]")?.dataset["copy"] ?? unit.textContent!;
    const part = document.createRange();
    part.selectNodeContents(unit);
    if (startsIn) part.setStart(range.startContainer, range.startOffset);
    if (endsIn) part.setEnd(range.endContainer, range.endOffset);
    return part.toString();
}

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
