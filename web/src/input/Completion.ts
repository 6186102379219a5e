import type {Completion, CompletionContext, CompletionResult, CompletionSource} from "@codemirror/autocomplete";

/** Functions of the interpreter, which answer also while code runs. */
export interface Asks {
    ask<Result>(name: string, arguments_: unknown[], signal?: AbortSignal): Promise<Result>;
}

export interface Inspection {
    found: boolean;
    name: string;
    type: string;
    signature: string | null;
    doc: string | null;
    source_file: string | null;
    line: number | null;
    text: string;
}

/** Completes by the interpreter. An answer that comes after the text has changed is not used. */
export function completionSource({ask}: Asks): CompletionSource {
    return async (context: CompletionContext): Promise<CompletionResult | null> => {
        const before = context.matchBefore(/[\w.]+$/u);
        if (!context.explicit && (!before || !/[.\w]$/.test(before.text) || /^[\d.]/.test(before.text))) return null;
        const abort = new AbortController();
        context.addEventListener("abort", () => abort.abort());
        const code = context.state.doc.toString();
        const answer = await ask<{matches: string[]; start: number}>("numora.complete", [code, context.pos], abort.signal).catch(() => undefined);
        if (!answer || answer.matches.length === 0 || context.aborted) return null;
        const options = answer.matches.map((label, index): Completion => ({label, boost: -Math.min(index, 99)}));
        return {from: answer.start, options, validFor: /^[\p{L}\p{N}_]*$/u};
    };
}

/** What is said of a name; empty when the interpreter does not know it. */
export async function inspectionText({ask}: Asks, name: string): Promise<string> {
    const found = await ask<Inspection>("numora.inspect", [name]).catch(() => undefined);
    if (!found?.found) return "";
    const head = `${found.name}${found.signature ?? ""}: ${found.type}`;
    const place = found.source_file ? `${found.source_file}${found.line ? `, line ${found.line}` : ""}` : "";
    return [head, found.text && !found.signature ? found.text : "", found.doc ?? "", place].filter(Boolean).join("\n\n");
}
