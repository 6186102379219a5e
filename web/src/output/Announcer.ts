import {ControlText} from "./ControlText.js";

const mostLines = 25;

/** Reads output aloud: a hidden live region that gets the first 25 lines of an entry, then "more output, not read". */
export class Announcer {
    readonly element = document.createElement("div");
    isOn = false;
    private entry: unknown;
    private lines = 0;
    private control = new ControlText();

    constructor() {
        this.element.className = "visually-hidden";
        this.element.ariaLive = "polite";
    }

    write(entry: unknown, text: string): void {
        if (!this.isOn) return;
        if (entry !== this.entry) {
            this.entry = entry;
            this.lines = 0;
            this.control = new ControlText();
        }
        if (this.lines <= mostLines) this.control.write(text);
    }

    /** Once a frame; `isIdle`: a line without an end is read, too, such as a prompt. */
    settle(isIdle: boolean): void {
        if (!this.isOn || this.lines > mostLines) return;
        if (isIdle) this.control.finishLine();
        const lines = this.control.finished.text.split("\n").filter(line => line.trim() !== "");
        this.control.finished.clear();
        if (lines.length === 0) return;
        const read = lines.slice(0, mostLines - this.lines);
        this.lines += lines.length;
        if (this.lines > mostLines) read.push("more output, not read");
        const paragraph = document.createElement("p");
        paragraph.textContent = read.join("\n");
        this.element.append(paragraph);
        while (this.element.childElementCount > mostLines) this.element.firstElementChild!.remove();
    }
}
