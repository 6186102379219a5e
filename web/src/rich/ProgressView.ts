import type {ProgressEvent} from "../wire/messages.js";
import {make} from "./dom.js";

/** Shows in `row` how far a loop over `numora.progress` is. */
export function showProgress(row: HTMLElement, {label, done, total, seconds, ended}: ProgressEvent): void {
    const bar = row.querySelector("progress") ?? make("progress", "");
    if (bar.parentNode !== row) row.replaceChildren(make("span", "progress-label"), bar, make("span", "quiet"));
    const counts = total === null ? `${done}` : `${done}/${total}`;
    const left = total !== null && done > 0 ? Math.round((seconds / done) * (total - done)) : undefined;
    row.firstElementChild!.textContent = label ? `${label} ${counts}` : counts;
    row.lastElementChild!.textContent = ended ? `${seconds.toFixed(1)} s` : left === undefined ? "" : `${left} s left`;
    bar.ariaLabel = label || "Progress";
    if (total !== null && total > 0) Object.assign(bar, {max: total, value: Math.min(done, total)});
    else if (ended) bar.value = 1;
}
