import {keep, kept} from "./storage.js";

const most = 500;
const dots = "\u2022".repeat(8);

/**
 * What was typed at prompts in this browser, which the server does not send back, so that the log shows it in all tabs and after a reload.
 * Prompts are counted anew with each start of the server, which `server` names.
 */
export class Answers {
    constructor(private readonly storage: Pick<Storage, "getItem" | "setItem">, private readonly key: string, private readonly server: () => string | undefined) {}

    /** Of a secret one only that it was there. */
    add(prompt: number, text: string, isSecret: boolean): void {
        this.store(new Map([...this.items(), [prompt, isSecret ? dots : text.slice(0, 10_000)]]));
    }

    get(prompt: number): string | undefined {
        return this.items().get(prompt);
    }

    remove(prompt: number): void {
        const items = this.items();
        items.delete(prompt);
        this.store(items);
    }

    private items(): Map<number, string> {
        const {server, items} = kept<{server?: string | undefined; items: [number, string][]}>(this.storage, this.key, {items: []});
        return new Map(server === this.server() ? items : []);
    }

    private store(items: Map<number, string>): void {
        keep(this.storage, this.key, {server: this.server(), items: [...items].slice(-most)});
    }
}
