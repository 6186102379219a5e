import {ask} from "../wire/calls.js";
import type {Bundle} from "../wire/messages.js";
import {blobOf, make} from "./dom.js";

/** What is shown of a bundle, the best first. */
const preference = ["image/svg+xml", "image/png", "image/jpeg", "image/gif", "image/webp", "text/html", "text/markdown", "text/latex", "application/json", "text/plain"];

function textOf(value: unknown): string {
    return typeof value === "string" ? value : JSON.stringify(value, null, 2);
}

/** What code says of a table beside its HTML. */
interface TableSize {
    table: string;
    rows: number;
    columns: number;
}

/** Of tables of this size HTML has all rows and columns, as far as it does not say otherwise. */
const whole = {rows: 60, columns: 20};

function isCut({rows, columns}: TableSize, html: string): boolean {
    return rows > whole.rows || columns > whole.columns || html.includes("<td>...</td>");
}

/** Puts what `bundle` holds, of the interpreter at `address`, into `host`. */
export function showBundle(host: HTMLElement, {data, metadata, note}: Bundle, address: string): void {
    const type = preference.find(each => data[each] !== undefined) ?? Object.keys(data)[0] ?? "text/plain";
    const value = data[type] ?? "";
    host.replaceChildren(...(note ? [make("p", "quiet", note)] : []));
    if (type.startsWith("image/")) host.append(picture(type, textOf(value), textOf(data["text/plain"] ?? "Picture"), metadata[type]));
    else if (type === "text/html") {
        const inner = make("div", "rich-html");
        host.append(inner);
        void import("./Html.js").then(({showHtml}) => showHtml(inner, textOf(value)));
        const size = metadata["numora"] as TableSize | undefined;
        if (size && isCut(size, textOf(value))) {
            void import("./Table.js").then(({showTable}) => showTable(inner, (begin, end) => ask(address, "numora.rows", [size.table, begin, end])));
        }
    } else host.append(make("pre", "rich-text", textOf(value)));
}

function picture(type: string, value: string, alt: string, size: {width?: number; height?: number} = {}): HTMLImageElement {
    const image = make("img", "rich-picture");
    // SVG only as a picture: its scripts do not run, and it fetches nothing.
    const blob = type === "image/svg+xml" ? new Blob([value], {type}) : blobOf(value, type);
    image.src = URL.createObjectURL(blob);
    image.onload = () => URL.revokeObjectURL(image.src);
    image.alt = alt;
    if (size.width) image.width = size.width;
    if (size.height) image.height = size.height;
    return image;
}
