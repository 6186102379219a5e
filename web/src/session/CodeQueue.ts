/** Code that waits in the page until the interpreter is idle: it can still be edited, removed or taken back. */
export class CodeQueue {
    constructor(private items: string[], private readonly onChange: (items: readonly string[]) => void) {}

    get waiting(): readonly string[] {
        return this.items;
    }

    add(code: string): void {
        this.set([...this.items, code]);
    }

    /** Takes out the one at `index`, the oldest unless told. */
    take(index = 0): string | undefined {
        const code = this.items[index];
        if (code !== undefined) this.set(this.items.filter((_, each) => each !== index));
        return code;
    }

    /** Takes out all, as one text. */
    takeAll(): string {
        const text = this.items.join("\n");
        if (this.items.length > 0) this.set([]);
        return text;
    }

    private set(items: string[]): void {
        this.items = items;
        this.onChange(items);
    }
}
