import type {EntryHandle, Output} from "../output/api.js";
import type {Showing} from "../session/Session.js";
import type {Bundle, Failure, Figure, Life, ProgressEvent, Tag} from "../wire/messages.js";
import {corrected} from "./correction.js";
import {button, make, rowsOf} from "./dom.js";

const mostDisplays = 1000;

type Nodes = typeof import("./nodes.js");

/** What a node of the log shows, for transcripts. */
export const bundles = new WeakMap<HTMLElement, Pick<Bundle, "data" | "metadata">>();

/** Shows in the log of one interpreter what is no text. */
export class Rich implements Showing {
    private readonly nodes = import("./nodes.js");
    readonly figures = this.nodes.then(({FigureStore}) => new FigureStore(node => bundles.delete(node)));
    private readonly progress = new Map<string, HTMLElement>();
    private readonly displays = new Map<string, HTMLElement>();
    /** What it has shown goes when it shows something new. */
    private mustClear: EntryHandle | undefined;

    constructor(private readonly log: Output, private readonly onUse: (code: string, insteadOf: string) => void, private readonly address: string) {}

    event(tag: Tag, data: any, entry: EntryHandle): void {
        if (tag === "figure") this.figure(data as Figure, entry);
        else if (tag === "progress") this.step(data as ProgressEvent, entry);
        else if (tag === "display") this.display(data as Bundle, entry);
        else if (tag === "clear") data.wait ? (this.mustClear = entry) : entry.clear();
        else if (tag === "error") this.error(data as Failure, entry);
    }

    death({death}: Life, entry: EntryHandle): void {
        this.progress.clear();
        this.place("death", 60, entry, (node, {showDeath}) => showDeath(node, death!));
    }

    suggestion(name: string, entry: EntryHandle, failure?: Failure): void {
        const {code} = entry.start;
        const use = button(name, () => this.onUse(corrected(code, name, failure?.value ?? ""), code));
        entry.place(make("div", "suggestion", "Did you mean ", use), 1);
    }

    private figure(figure: Figure, entry: EntryHandle): void {
        const node = this.place("figure", figure.height + 40, entry, node => void this.figures.then(store => store.show(node, figure)));
        const name = figure.title || `Figure ${figure.number}`;
        node.dataset["copy"] = name;
        bundles.set(node, {data: {"image/png": figure.png, "text/plain": name}, metadata: {}});
    }

    private step(event: ProgressEvent, entry: EntryHandle): void {
        const id = String(event.id), show = (row: HTMLElement, {showProgress}: Nodes) => showProgress(row, event);
        // They are counted anew in each life.
        const row = event.done === 0 && !event.ended ? undefined : this.progress.get(id);
        if (row) void this.nodes.then(nodes => show(row, nodes));
        else this.progress.set(id, this.place("progress", 22, entry, show));
        if (event.ended) this.progress.delete(id);
    }

    private display(bundle: Bundle, entry: EntryHandle): void {
        const id = bundle.transient?.display_id;
        const old = id === undefined ? undefined : this.displays.get(id);
        if (bundle.kind === "update") {
            if (old) this.fill(old, bundle);
            return;
        }
        const keys = Object.keys(bundle.data);
        if (id === undefined && keys.length === 1 && keys[0] === "text/plain" && !bundle.note) {
            this.clearLate(entry);
            return entry.write(`${bundle.data["text/plain"]}\n`, "output");
        }
        const node = this.place("rich", 100, entry, undefined, JSON.stringify(bundle.data).length);
        this.fill(node, bundle);
        if (id === undefined) return;
        this.displays.delete(id);
        this.displays.set(id, node);
        if (this.displays.size > mostDisplays) this.displays.delete(this.displays.keys().next().value!);
    }

    private fill(node: HTMLElement, bundle: Bundle): void {
        const text = bundle.data["text/plain"];
        if (typeof text === "string") node.dataset["copy"] = text;
        bundles.set(node, bundle);
        void this.nodes.then(({showBundle}) => showBundle(node, bundle, this.address));
    }

    private error(failure: Failure, entry: EntryHandle): void {
        const node = this.place("error-view", 22 * failure.traceback.length, entry, (node, {showError}) => showError(node, failure, this.log, entry));
        node.dataset["copy"] = failure.traceback.join("\n");
    }

    /** Puts an element into the log, for `fill` as soon as that is there. */
    private place(className: string, height: number, entry: EntryHandle, fill?: (node: HTMLElement, nodes: Nodes) => void, characters = 0): HTMLElement {
        this.clearLate(entry);
        const node = make("div", className);
        if (fill) void this.nodes.then(nodes => fill(node, nodes));
        entry.place(node, rowsOf(height), characters);
        return node;
    }

    private clearLate(entry: EntryHandle): void {
        if (this.mustClear === entry) entry.clear();
        this.mustClear = undefined;
    }
}
