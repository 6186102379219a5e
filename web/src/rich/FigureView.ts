import type {Figure} from "../wire/messages.js";
import {blobOf, button, make, save} from "./dom.js";

/** What is kept; of older ones there is a placeholder. */
const most = {figures: 50, bytes: 64 * 1024 * 1024};

interface Kept {
    figure: Figure;
    blob: Blob;
    url: string;
    node: HTMLElement;
}

/** The figures of one interpreter, in the log and in the panel. */
export class FigureStore {
    private readonly kept: Kept[] = [];

    onChange = (): void => {};

    /** `onDropped` is told whose figure is not kept any more. */
    constructor(private readonly onDropped: (node: HTMLElement) => void) {}

    get all(): readonly Kept[] {
        return this.kept;
    }

    /** Shows `figure` in `node`, which is in the log. */
    show(node: HTMLElement, figure: Figure): void {
        const name = nameOf(figure);
        const isVector = figure.svg !== null;
        const blob = blobOf(isVector ? figure.svg! : figure.png, isVector ? "image/svg+xml" : "image/png");
        const url = URL.createObjectURL(blob), image = make("img", "");
        Object.assign(image, {src: url, alt: name, width: figure.width, height: figure.height});
        const fileName = `${name.replace(/[^\p{L}\p{N}]+/gu, "-").toLowerCase()}.${isVector ? "svg" : "png"}`;
        const caption = make("div", "caption", make("span", "", name),
            button("Open", () => window.open(url, "_blank", "noopener")),
            button("Save", () => save(blob, fileName)),
            // Browsers have no clipboard for pictures on pages that came over plain HTTP.
            ...(navigator.clipboard ? [button("Copy", () => void navigator.clipboard.write([new ClipboardItem({"image/png": blobOf(figure.png, "image/png")})]))] : []));
        node.replaceChildren(image, caption);
        this.kept.push({figure, blob, url, node});
        this.trim();
        this.onChange();
    }

    private trim(): void {
        let bytes = this.kept.reduce((sum, {blob}) => sum + blob.size, 0);
        while (this.kept.length > 1 && (this.kept.length > most.figures || bytes > most.bytes)) {
            const {blob, url, node, figure} = this.kept.shift()!;
            bytes -= blob.size;
            URL.revokeObjectURL(url);
            node.replaceChildren(make("div", "quiet", `${nameOf(figure)} is not kept any more`));
            this.onDropped(node);
        }
    }
}

export function nameOf({title, number}: Figure): string {
    return title || `Figure ${number}`;
}
