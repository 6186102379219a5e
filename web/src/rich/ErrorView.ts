import type {Failure} from "../wire/messages.js";
import {button, make} from "./dom.js";

const frame = /^ {2}File "(.*)", line (\d+)(?:, in (.*))?$/;
const own = /^<eval (\d+)>$/;

/** An error whose frames fold: those of the user's code are open and lead to their line, those of libraries are closed. */
export function showError(view: HTMLElement, {name, value, traceback}: Failure, goTo: (evaluation: number, line: number) => void): void {
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
                const go = button("Show line", () => goTo(Number(evaluation), Number(line)));
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
