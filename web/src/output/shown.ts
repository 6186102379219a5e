import {joined} from "./textOf.js";

/** What is copied and searched, in the order in which it stands. */
const units = ".entry-code, .block, .notice, .placed";
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
