import type {Room} from "./Room.js";

/** Characters that wait for one reader; beyond that the oldest events are lost. */
const most = 64 * 1024 * 1024;

/** How much was lost because the reader of a queue was too slow. */
export interface Loss {
    messages: number;
    bytes: number;
}

/** Events in the order in which they came, each for one call of `next`. What is lost is told in its place. */
export class EventQueue<Event> implements AsyncIterableIterator<Event> {
    private readonly entries: {event: Event; size: number}[] = [];
    private waiting = 0;
    private loss: Loss | undefined;
    private ended = false;
    private error: Error | undefined;
    private wake = (): void => {};
    /** Ends with the last call of `next`; one waits for the other. */
    private turn: Promise<unknown> = Promise.resolve();

    /** `noticeOf` makes the event that tells of a loss; `onReturn` is called when the reader leaves the loop. */
    constructor(private readonly room: Room, private readonly noticeOf: (loss: Loss) => Event,
                private readonly onReturn: () => void) {}

    /** `size` in characters, about. */
    push(event: Event, size: number): void {
        if (this.ended) return;
        this.entries.push({event, size});
        this.waiting += size;
        this.room.add(size);
        while (this.waiting > most && this.entries.length > 1) {
            this.loss ??= {messages: 0, bytes: 0};
            ++this.loss.messages;
            this.loss.bytes += this.shift().size;
        }
        this.wake();
    }

    /** No event comes any more; after those that are there, the reader gets `error`, or the end. */
    end(error?: Error): void {
        if (this.ended) return;
        this.ended = true;
        this.error = error;
        this.wake();
    }

    next(): Promise<IteratorResult<Event>> {
        const result = this.turn.then(() => this.read());
        this.turn = result.catch(() => {});
        return result;
    }

    private async read(): Promise<IteratorResult<Event>> {
        while (this.entries.length === 0 && !this.ended) {
            await new Promise<void>(resolve => (this.wake = resolve));
        }
        const {loss, error} = this;
        this.loss = undefined;
        if (loss) return {value: this.noticeOf(loss), done: false};
        if (this.entries.length > 0) return {value: this.shift().event, done: false};
        this.error = undefined;
        if (error) throw error;
        return {value: undefined, done: true};
    }

    async return(): Promise<IteratorResult<Event>> {
        while (this.entries.length > 0) this.shift();
        this.end();
        this.onReturn();
        return {value: undefined, done: true};
    }

    [Symbol.asyncIterator](): this {
        return this;
    }

    private shift(): {event: Event; size: number} {
        const entry = this.entries.shift()!;
        this.waiting -= entry.size;
        this.room.take(entry.size);
        return entry;
    }
}
