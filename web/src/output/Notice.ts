import type {Part} from "./api.js";
import {Box} from "./Box.js";

/** A line of the page's own in the log, such as "12 messages, 34 KB of output were dropped here". */
export class Notice {
    readonly box: Box;

    constructor(private readonly text: string, parent: Box) {
        this.box = Box.make("notice", parent);
        this.box.element.textContent = text;
        this.box.addRows(1);
    }

    get length(): number {
        return this.text.length;
    }

    part(): Part {
        return {kind: "notice", text: this.text};
    }
}
