// Waits that end.

/** Resolves as `promise` does, or fails with `what` after `limitMs`. */
export async function within(limitMs, promise, what) {
    let timer;
    const limit = new Promise((_, reject) => {
        timer = setTimeout(() => reject(new Error(`${what}: nothing for ${limitMs} ms`)), limitMs);
    });
    try {
        return await Promise.race([promise, limit]);
    } finally {
        clearTimeout(timer);
    }
}

/** What comes, in order, for one who waits for it. */
export class Mailbox {
    #items = [];
    #wake = () => {};

    constructor(name) {
        this.name = name;
    }

    push(item) {
        this.#items.push(item);
        this.#wake();
    }

    /** The next `count` items. */
    async take(count, limitMs = 20_000) {
        while (this.#items.length < count) {
            await within(limitMs, new Promise(resolve => (this.#wake = resolve)),
                `${this.name}: ${this.#items.length} of ${count}`);
        }
        return this.#items.splice(0, count);
    }

    async next() {
        return (await this.take(1))[0];
    }

    /** The next item that `wanted` accepts; those before it are gone. */
    async nextOf(wanted) {
        for (;;) {
            const item = await this.next();
            if (wanted(item)) return item;
        }
    }

    /** What is there and has not been taken. */
    get rest() {
        return [...this.#items];
    }
}
