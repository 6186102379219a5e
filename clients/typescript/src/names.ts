/** A name that no other request has. (randomUUID is not there for pages that came over plain HTTP.) */
export function newName(): string {
    const words = globalThis.crypto?.getRandomValues(new Uint32Array(4))
        ?? Array.from({length: 4}, () => Math.floor(Math.random() * 2 ** 32));
    return Array.from(words, word => word.toString(16).padStart(8, "0")).join("");
}
