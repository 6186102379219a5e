import {keep, kept} from "./storage.js";

const most = 1000;

/** The code that was entered, the newest last, in a storage that outlives the page. */
export class History {
    private items: string[];
    private position: number;
    /** What the code that is recalled has to begin with. */
    private prefix = "";

    constructor(private readonly storage: Pick<Storage, "getItem" | "setItem">, private readonly key = "numora.history") {
        this.items = this.stored();
        this.position = this.items.length;
    }

    get all(): readonly string[] {
        return this.items;
    }

    add(code: string): void {
        if (code.trim() === "") return;
        // Another page may have added some meanwhile.
        this.items = [...this.stored().filter(each => each !== code), code].slice(-most);
        this.reset();
        keep(this.storage, this.key, this.items);
    }

    /** Puts what the interpreter knows, too, before what is known here. */
    join(codes: readonly string[]): void {
        const known = new Set(this.items);
        const others = codes.filter(code => !known.has(code));
        this.items = [...new Set(others), ...this.items].slice(-most);
        this.reset();
    }

    /** The next older entry (-1) or newer one (1) that begins as the text did when the walk began. */
    step(by: -1 | 1, text: string): string | undefined {
        if (this.position === this.items.length) {
            if (by > 0) return undefined;
            this.prefix = text;
        }
        for (let index = this.position + by; index >= 0 && index < this.items.length; index += by) {
            const item = this.items[index]!;
            if (!item.startsWith(this.prefix) || item === text) continue;
            this.position = index;
            return item;
        }
        if (by < 0) return undefined;
        this.position = this.items.length;
        return this.prefix;
    }

    /** Ends a walk. */
    reset(): void {
        this.position = this.items.length;
    }

    private stored(): string[] {
        return kept<string[]>(this.storage, this.key, []);
    }
}
