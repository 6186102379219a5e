const nearEnd = 8;

/**
 * Keeps the end of the log in view as long as it is in view. Scrolling up or selecting text stops that until the end is reached again or the
 * button "n new lines" is pressed.
 */
export class Follow {
    readonly button = document.createElement("button");
    isFollowing = true;
    private readonly sizes = new ResizeObserver(() => this.isFollowing && this.scroll());
    private newRows = 0;
    private lastTop = 0;

    constructor(private readonly region: HTMLElement, signal: AbortSignal) {
        this.button.type = "button";
        this.button.className = "new-lines";
        this.button.hidden = true;
        this.button.addEventListener("click", () => {
            this.toEnd();
            region.focus({preventScroll: true});
        }, {signal});
        region.addEventListener("scroll", () => this.scrolled(), {signal, passive: true});
        region.addEventListener("wheel", event => event.deltaY < 0 && region.scrollTop > 0 && this.stop(), {signal, passive: true});
        document.addEventListener("selectionchange", () => this.isSelecting() && this.stop(), {signal});
    }

    /** Follows what changes its height without new rows, such as a picture that is loaded, in `last`, the last thing in the log. */
    watch(last: HTMLElement): void {
        this.sizes.disconnect();
        this.sizes.observe(this.region);
        this.sizes.observe(last);
    }

    /** After rows were added; in view is the end, or what was in view before. */
    settle(addedRows: number): void {
        if (this.isFollowing) return this.scroll();
        this.newRows = Math.max(0, this.newRows + addedRows);
        this.showButton();
    }

    /** Does `change`, which removes what stands at the top, without moving what is in view. */
    hold(change: () => void): void {
        if (this.isFollowing) return change();
        const before = this.region.scrollHeight;
        change();
        this.region.scrollTop += this.region.scrollHeight - before;
        this.lastTop = this.region.scrollTop;
    }

    toEnd(): void {
        this.isFollowing = true;
        this.newRows = 0;
        this.scroll();
        this.showButton();
    }

    private scroll(): void {
        this.region.scrollTop = 1e9;
        this.lastTop = this.region.scrollTop;
    }

    private scrolled(): void {
        const {scrollTop, scrollHeight, clientHeight} = this.region;
        const wentUp = scrollTop < this.lastTop - 1;
        this.lastTop = scrollTop;
        if (scrollHeight - scrollTop - clientHeight <= nearEnd) {
            if (!this.isFollowing && !this.isSelecting()) this.toEnd();
        } else if (wentUp) this.stop();
    }

    private stop(): void {
        this.isFollowing = false;
    }

    private isSelecting(): boolean {
        const selection = document.getSelection();
        return !!selection && !selection.isCollapsed && this.region.contains(selection.focusNode);
    }

    private showButton(): void {
        const isHidden = this.isFollowing || this.newRows === 0;
        if (this.button.hidden !== isHidden) this.button.hidden = isHidden;
        if (!isHidden) this.button.textContent = `${this.newRows.toLocaleString("en")} new ${this.newRows === 1 ? "line" : "lines"}`;
    }
}
