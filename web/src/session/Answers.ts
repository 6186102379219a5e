const most = 500;
const dots = "\u2022".repeat(8);

/** What was typed at prompts, which the server does not send back, so that the log shows it also after a reload. */
export class Answers {
    private readonly items: Map<number, string>;

    constructor(private readonly storage: Pick<Storage, "getItem" | "setItem">, private readonly key: string) {
        let stored: [number, string][] = [];
        try {
            stored = JSON.parse(storage.getItem(key) ?? "[]");
        } catch {
            // As if there were none.
        }
        this.items = new Map(stored);
    }

    /** Of a secret one only that it was there. */
    add(prompt: number, text: string, isSecret: boolean): void {
        this.items.set(prompt, isSecret ? dots : text.slice(0, 10_000));
        for (const oldest of this.items.keys()) {
            if (this.items.size <= most) break;
            this.items.delete(oldest);
        }
        this.store();
    }

    get(prompt: number): string | undefined {
        return this.items.get(prompt);
    }

    remove(prompt: number): void {
        this.items.delete(prompt);
        this.store();
    }

    private store(): void {
        try {
            this.storage.setItem(this.key, JSON.stringify([...this.items]));
        } catch {
            // Full: they last as long as the page.
        }
    }
}
