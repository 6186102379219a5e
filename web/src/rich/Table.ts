// A chunk of its own, loaded with the first large table.

import {make} from "./dom.js";
import type {AskRows} from "./TableRows.js";
import {TableView} from "./TableView.js";

export {TableView};

/**
 * Puts a table whose rows can be asked for in the place of `html`, its beginning and end, as soon as that is in view. Once it is gone from
 * the interpreter, `html` is shown again.
 */
export function showTable(html: HTMLElement, ask: AskRows): void {
    const seen = new IntersectionObserver(entries => {
        if (!entries.some(({isIntersecting}) => isIntersecting)) return;
        seen.disconnect();
        const view = new TableView("Table that was shown", ask, {
            onReady: () => {
                html.after(view.element);
                queueMicrotask(() => (html.hidden = true));  // once the rows are there: the log must not become shorter in between
            },
            onGone: text => {
                view.element.remove();
                html.hidden = false;
                html.after(make("p", "quiet", `This is what is left of the table: ${text}\n`));
            },
        });
    });
    seen.observe(html);
}
