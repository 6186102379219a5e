/** An element with a class and children; text becomes text. */
export function make<Tag extends keyof HTMLElementTagNameMap>(tag: Tag, className: string, ...children: (Node | string)[]): HTMLElementTagNameMap[Tag] {
    const element = document.createElement(tag);
    if (className) element.className = className;
    element.append(...children);
    return element;
}

export function button(text: string, onClick: () => void): HTMLButtonElement {
    const element = make("button", "", text);
    element.type = "button";
    element.addEventListener("click", onClick);
    return element;
}

export function blobOf(base64: string, type: string): Blob {
    const binary = atob(base64), bytes = new Uint8Array(binary.length);
    for (let index = 0; index < binary.length; ++index) bytes[index] = binary.charCodeAt(index);
    return new Blob([bytes], {type});
}

/** Lets the user keep `blob` as a file. */
export function save(blob: Blob, name: string): void {
    const link = make("a", ""), url = URL.createObjectURL(blob);
    link.href = url;
    link.download = name;
    link.click();
    setTimeout(() => URL.revokeObjectURL(url), 60_000);
}

const rowHeight = 22;

/** How many rows of the log something of this height counts for. */
export function rowsOf(height: number): number {
    return Math.min(1000, Math.max(1, Math.ceil(height / rowHeight) || 1));
}
