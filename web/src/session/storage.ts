// What the browser keeps for the page, as JSON.

/** `otherwise` where nothing is kept, or what is kept cannot be read. */
export function kept<Value>(storage: Pick<Storage, "getItem">, key: string, otherwise: Value): Value {
    try {
        return JSON.parse(storage.getItem(key) ?? "null") ?? otherwise;
    } catch {
        return otherwise;
    }
}

/** Where the storage is full, or not allowed, `value` lasts as long as the page. */
export function keep(storage: Pick<Storage, "setItem">, key: string, value: unknown): void {
    try {
        storage.setItem(key, JSON.stringify(value));
    } catch {
        // Of no use to the user who works.
    }
}
