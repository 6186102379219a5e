import type {DeathRecord} from "numora-client";
import {make} from "./dom.js";
import {sizeText} from "../session/texts.js";

/** How a life of the interpreter has ended, where it happened. */
export function showDeath(view: HTMLElement, {sentence, ended, output, rest, trace, request, peakMemoryBytes, processorMs}: DeathRecord): void {
    const parts: [string, string][] = [
        ["What ran", request?.code ?? ""],
        ["Printed last", output],
        ["Native code printed last", rest],
        ["Where each thread was", trace],
    ];
    const facts = `${new Date(ended).toLocaleString()}, ${sizeText(peakMemoryBytes)} of memory at most, ${(processorMs / 1000).toFixed(1)} s of processor time`;
    const details = make("details", "", make("summary", "", "What is known of it\n"), make("p", "quiet", `${facts}\n`));
    for (const [title, text] of parts) if (text) {
        const block = make("pre", "", `${text.trimEnd()}\n`);
        Object.assign(block, {tabIndex: 0, role: "group", ariaLabel: title});  // it scrolls
        details.append(make("p", "", make("strong", "", `${title}\n`)), block);
    }
    view.replaceChildren(make("p", "", make("strong", "", `${sentence}\n`)), details);
}
