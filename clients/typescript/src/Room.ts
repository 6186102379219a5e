/** Characters that may wait for the readers of a client before it stops to read from its connection. */
const most = 4 * 1024 * 1024;
/** Milliseconds after which it reads on a little all the same, so that the server does not take it for gone. */
const longestPause = 10_000;
/** Milliseconds in which a reader takes something, unless it waits for something else itself. */
const slice = 100;

/** Counts what waits for the readers of a client, and says when more may be read. */
export class Room {
    private waiting = 0;
    private takes = 0;
    private wake = (): void => {};

    add(size: number): void {
        this.waiting += size;
    }

    take(size: number): void {
        this.waiting -= size;
        ++this.takes;
        if (this.waiting <= most) this.wake();
    }

    get isFull(): boolean {
        return this.waiting > most;
    }

    /**
     * Resolves when there is room. Earlier while `isUrgent` and no reader takes anything: it may wait for an answer that
     * comes after what it has not read.
     */
    async free(isUrgent: () => boolean): Promise<void> {
        for (let paused = 0; this.isFull && paused < longestPause; paused += slice) {
            const {takes} = this;
            await new Promise<void>(resolve => {
                const timer = setTimeout(resolve, slice);
                this.wake = () => {
                    clearTimeout(timer);
                    resolve();
                };
            });
            if (isUrgent() && takes === this.takes) return;
        }
    }
}
