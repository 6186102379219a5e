/** Time and frames, as the browser gives them or as a test moves them. */
export interface Frames {
    now(): number;
    isHidden(): boolean;
    request(frame: () => void): void;
}

const browserFrames: Frames = {
    now: () => performance.now(),
    isHidden: () => document.hidden,
    request: frame => void requestAnimationFrame(frame),
};

const millisecondsPerFrame = 8;
const mostWaiting = 4 << 20;

/**
 * Work that waits for the next frames, in order: 8 ms of it a frame, then once `settle`. In a hidden tab, which gets no frames, it is done at
 * once; so is what goes beyond 4 Mi characters: whoever brings it then waits, and with it the server.
 */
export class Pump {
    /** Characters that wait. */
    backlog = 0;
    private pieces: {run: () => void; size: number}[] = [];
    private next = 0;
    private isRequested = false;

    constructor(private readonly settle: () => void, private readonly frames: Frames = browserFrames) {}

    /** Queues `run`, which appends `size` characters. What it throws is reported, and the next one runs. */
    push(size: number, run: () => void): void {
        this.pieces.push({run, size});
        this.backlog += size;
        if (this.frames.isHidden()) return this.flush();
        while (this.backlog > mostWaiting) this.runNext();
        this.requestFrame();
    }

    /** Does all that waits, now. */
    flush(): void {
        while (this.next < this.pieces.length) this.runNext();
        this.settle();
    }

    private requestFrame(): void {
        if (this.isRequested) return;
        this.isRequested = true;
        this.frames.request(() => this.frame());
    }

    private frame(): void {
        this.isRequested = false;
        const end = this.frames.now() + millisecondsPerFrame;
        while (this.next < this.pieces.length) {
            this.runNext();
            if (this.frames.now() >= end) break;
        }
        this.settle();
        if (this.next < this.pieces.length) this.requestFrame();
    }

    private runNext(): void {
        const {run, size} = this.pieces[this.next++]!;
        this.backlog -= size;
        if (this.next === this.pieces.length) {
            this.pieces = [];
            this.next = 0;
        }
        try {
            run();
        } catch (error) {
            reportError(error);
        }
    }
}
