import type {EntryHandle, Output, Part} from "../output/api.js";
import {save} from "./dom.js";
import {bundles} from "./Rich.js";

type Kind = "txt" | "md" | "ipynb";

const types: Record<Kind, string> = {txt: "text/plain", md: "text/markdown", ipynb: "application/x-ipynb+json"};

/** Lets the user keep what the log has. */
export function saveTranscript(log: Output, kind: Kind, name: string): void {
    const text = transcript(log, kind);
    save(new Blob([text], {type: `${types[kind]};charset=utf-8`}), `numora-${name}-${new Date().toISOString().slice(0, 16).replace(/[T:]/g, "-")}.${kind}`);
}

export function transcript(log: Output, kind: Kind): string {
    if (kind === "txt") return log.text();
    const entries = log.entries();
    if (kind === "md") return entries.map(markdownOf).filter(Boolean).join("\n");
    const metadata = {kernelspec: {name: "python3", display_name: "Python 3", language: "python"}, language_info: {name: "python"}};
    return JSON.stringify({nbformat: 4, nbformat_minor: 5, metadata, cells: entries.map(cellOf).filter(Boolean)}, null, 1);
}

function fenced(text: string, language = ""): string {
    const longest = Math.max(2, ...(text.match(/`+/g) ?? []).map(({length}) => length));
    const fence = "`".repeat(longest + 1);
    return `${fence}${language}\n${text.replace(/\n$/, "")}\n${fence}\n`;
}

// Without what the code itself has cleared, such as the earlier pictures of an animation.
function shownParts(entry: EntryHandle): Part[] {
    return entry.parts().filter(part => part.kind !== "node" || !part.node.closest(".entry-body > .is-cleared"));
}

function markdownOf(entry: EntryHandle): string {
    const parts = shownParts(entry).map(part => {
        const {data} = (part.kind === "node" && bundles.get(part.node)) || {data: {}};
        const png = (data as Record<string, unknown>)["image/png"];
        const name = String((data as Record<string, unknown>)["text/plain"] ?? "Picture").replace(/[^\p{L}\p{N} .,=_-]+/gu, " ");
        if (png) return `![${name}](data:image/png;base64,${String(png).replace(/[^\w+/=]/g, "")})\n`;
        if (part.kind === "notice") return `*${part.text}*\n`;
        return part.text.trim() === "" ? "" : fenced(part.text);
    });
    return [entry.start.code === "" ? "" : fenced(entry.start.code, "python"), ...parts].filter(Boolean).join("\n");
}

function cellOf(entry: EntryHandle, index: number): object | undefined {
    const {code, number} = entry.start, id = `entry-${index}`;
    const outputs = shownParts(entry).map(outputOf);
    if (code !== "") return {cell_type: "code", id, metadata: {}, execution_count: number ?? null, source: code, outputs};
    const text = entry.text();
    return text.trim() === "" ? undefined : {cell_type: "raw", id, metadata: {}, source: text};
}

function outputOf(part: Part): object {
    const bundle = part.kind === "node" ? bundles.get(part.node) : undefined;
    if (bundle) {
        const {numora: _, ...metadata} = bundle.metadata ?? {};  // for this interpreter alone
        return {output_type: "display_data", data: bundle.data, metadata};
    }
    if (part.kind === "node" && part.node.classList.contains("error-view")) {
        const traceback = part.text.split("\n").filter(Boolean), [, ename, evalue] = /^([\w.]+)(?:: ([^]*))?$/.exec(traceback.at(-1) ?? "") ?? [];
        return {output_type: "error", ename: ename ?? "Error", evalue: evalue ?? "", traceback};
    }
    return {output_type: "stream", name: part.kind === "text" && part.stream === "error" ? "stderr" : "stdout", text: part.text};
}

