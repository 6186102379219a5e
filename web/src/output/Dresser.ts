import {TextBlock} from "./TextBlock.js";

/**
 * Gives blocks their styles and links while they are in view, as the browser tells it. While a flood runs past they stay plain: nobody reads
 * them, and they would be built in vain.
 */
export class Dresser {
    private isFlooded = false;
    private readonly inView = new Set<TextBlock>();

    constructor(region: HTMLElement, signal: AbortSignal) {
        region.addEventListener("contentvisibilityautostatechange", event => {
            const target = event.target as HTMLElement;
            if ((event as ContentVisibilityAutoStateChangeEvent).skipped) this.left(target);
            else this.entered(target);
        }, {signal, capture: true});
    }

    /** After each frame. */
    settle(isFlooded: boolean): void {
        this.isFlooded = isFlooded;
        if (isFlooded) return;
        for (const block of this.inView) {
            if (block.box.element.isConnected) block.dress();
            else this.inView.delete(block);
        }
    }

    private entered(target: HTMLElement): void {
        const block = TextBlock.at(target);
        if (!block) return this.settle(this.isFlooded);
        this.inView.add(block);
        if (!this.isFlooded) block.dress();
    }

    // Of a group that leaves, the blocks get no event of their own.
    private left(target: HTMLElement): void {
        for (const block of this.inView)
            if (target.contains(block.box.element) && block.undress()) this.inView.delete(block);
    }
}
