/** Events in the order in which they came, for one reader at a time. The queue has no bound of its own. */
export class EventQueue<Event> implements AsyncIterableIterator<Event> {
    private readonly events: Event[] = [];
    private ended = false;
    private error: Error | undefined;
    private wake = (): void => {};

    /** `onReturn` is called when the reader leaves the loop. */
    constructor(private readonly onReturn: () => void = () => {}) {}

    push(event: Event): void {
        this.events.push(event);
        this.wake();
    }

    /** No event comes any more; after those that are there, the reader gets `error`, or the end. */
    end(error?: Error): void {
        this.ended = true;
        this.error ??= error;
        this.wake();
    }

    async next(): Promise<IteratorResult<Event>> {
        while (this.events.length === 0 && !this.ended) {
            await new Promise<void>(resolve => (this.wake = resolve));
        }
        if (this.events.length > 0) return {value: this.events.shift()!, done: false};
        const error = this.error;
        this.error = undefined;
        if (error) throw error;
        return {value: undefined, done: true};
    }

    async return(): Promise<IteratorResult<Event>> {
        this.events.length = 0;
        this.end();
        this.onReturn();
        return {value: undefined, done: true};
    }

    [Symbol.asyncIterator](): this {
        return this;
    }
}
