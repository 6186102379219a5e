import type {EntryEnd, EntryStart} from "./api.js";

/** The head of an entry: number, code, where it comes from, time, buttons. The log listens to the buttons, by their data-action. */
export interface EntryHead {
    readonly element: HTMLElement;
    setNumber(number: number): void;
    setLabel(text: string): void;
    setFolded(isFolded: boolean): void;
    end(end: EntryEnd): void;
}

function part(tag: string, className: string, text = ""): HTMLElement {
    const element = document.createElement(tag);
    element.className = className;
    element.textContent = text;
    return element;
}

function button(action: string, text: string): HTMLElement {
    const element = part("button", `entry-${action}`, text);
    element.setAttribute("type", "button");
    element.dataset["action"] = action;
    return element;
}

/** As in "0.1 s", "2 min 5 s". */
export function timeText(seconds: number): string {
    if (seconds < 60) return `${seconds.toFixed(seconds < 10 ? 1 : 0)} s`;
    const minutes = Math.floor(seconds / 60), rest = Math.floor(seconds % 60);
    return minutes < 60 ? `${minutes} min ${rest} s` : `${Math.floor(minutes / 60)} h ${minutes % 60} min`;
}

export function entryHead({code, clientType, isOwn}: EntryStart): EntryHead {
    const element = part("header", "entry-head");
    const number = part("span", "entry-number");
    const label = part("span", "entry-label");
    const fold = button("fold", "Hide output");
    const buttons = part("span", "entry-buttons");
    buttons.append(button("copy-code", "Copy code"), button("copy-output", "Copy output"), fold);
    element.append(number, part("pre", "entry-code", code));
    if (!isOwn) element.append(part("span", "entry-origin", clientType || "another client"));
    element.append(label, buttons);
    return {
        element,
        setNumber: value => void (number.textContent = `[${value}]`),
        setLabel: text => void (label.textContent = text),
        setFolded: isFolded => void (fold.textContent = isFolded ? "Show output" : "Hide output"),
        end: ({isError, seconds}) => {
            label.textContent = [isError ? "Error" : "", seconds === undefined ? "" : timeText(seconds)].filter(Boolean).join(", ");
        },
    };
}
