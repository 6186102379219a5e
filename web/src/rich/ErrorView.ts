import type {EntryHandle, Output} from "../output/api.js";
import type {Failure} from "../wire/messages.js";
import {button, make} from "./dom.js";

const frame = /^ {2}File "(.*)", line (\d+)(?:, in (.*))?$/;
const own = /^<eval (\d+)>$/;

/** An error whose frames fold: those of the user's code are open and lead to their line, those of libraries are closed. */
export function showError(view: HTMLElement, {name, value, traceback}: Failure, log: Output, entry: EntryHandle): void {
    view.ariaLabel = `${name}: ${value.slice(0, 200)}`;
    view.role = "group";
    let lines: HTMLElement = view;
    for (const text of traceback.join("\n").split("\n")) {
        const [, file, line] = frame.exec(text) ?? [];
        if (file !== undefined) {
            const details = make("details", "frame", make("summary", "", `${text}\n`));
            const [, evaluation] = own.exec(file) ?? [];
            details.open = evaluation !== undefined;
            if (evaluation !== undefined) {
                const go = button("Show line", () => goTo(log, entry, Number(evaluation), Number(line)));
                go.className = "show-line";
                go.ariaLabel = `Show line ${line} of evaluation ${evaluation}`;
                details.append(go);
            }
            view.append(details);
            lines = details;
        } else if (lines !== view && !text.startsWith("    ")) lines = view;
        if (file === undefined) lines.append(lines === view && /^\S/.test(text) && text.includes(name) ? make("strong", "error-name", `${text}\n`) : `${text}\n`);
    }
}

// Marks the line in the entry's code, as long as the entry is kept.
function goTo(log: Output, from: EntryHandle, evaluation: number, line: number): void {
    const entries = log.entries(), before = entries.slice(0, entries.indexOf(from) + 1);
    const entry = before.findLast(({start}) => start.number === evaluation);  // numbers begin anew with each life
    const code = entry?.element.querySelector(".entry-code");
    if (!entry || !code?.firstChild) return;
    const lines = entry.start.code.split("\n"), begin = lines.slice(0, line - 1).join("\n").length + (line > 1 ? 1 : 0);
    const range = document.createRange();
    range.setStart(code.firstChild, Math.min(begin, code.textContent!.length));
    range.setEnd(code.firstChild, Math.min(begin + (lines[line - 1]?.length ?? 0), code.textContent!.length));
    entry.element.scrollIntoView({block: "start"});
    entry.element.focus({preventScroll: true});
    const selection = document.getSelection()!;
    selection.removeAllRanges();
    selection.addRange(range);
}
