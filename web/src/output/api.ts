// What the log offers to the rest of the page. All calls take effect in the order in which they are made, after what was
// written before them has been appended; none of them waits.

/** Where a text was written to; text of "error" stands with an edge and a word of its own. */
export type Stream = "output" | "error";

export interface EntryStart {
    /** The evaluation's number, as in "Evaluation 4"; missing until it is known (see EntryHandle.setNumber). */
    number?: number;
    /** Empty for output that no code of this log has printed: the entry has then no code and no number, and is not shown as running. */
    code: string;
    /** The kind of client that has sent the code; shown where it is not our own. */
    clientType?: string;
    isOwn: boolean;
}

export interface EntryEnd {
    isError: boolean;
    seconds?: number;
}

/** One evaluation in the log: `<article aria-label="Evaluation 4">` with its code, and what it printed and showed. */
export interface EntryHandle {
    readonly element: HTMLElement;
    readonly start: Readonly<EntryStart>;
    /** undefined while it runs. */
    readonly result: Readonly<EntryEnd> | undefined;

    /** Appends text with control characters and escape sequences, which may be cut anywhere. Allowed after end(). */
    write(text: string, stream: Stream): void;
    /** Puts `node` after what was written; it counts as `rows` rows and `characters`. The node may change later, also in its height. */
    place(node: HTMLElement, rows: number, characters?: number): void;
    /** The same for a line of the page's own, such as "1.2 MB not kept by the server". */
    notice(text: string): void;
    /** Hides what came out until now; it stays in parts() and text(). */
    clear(): void;
    end(end: EntryEnd): void;
    setNumber(number: number): void;
    /** The words after the code, such as "running 00:12"; end() replaces them by the time it took. */
    setLabel(text: string): void;
    /** Hides or shows what came out; the code stays. */
    fold(isFolded: boolean): void;
    /** What came out, in order, for copies and transcripts; appends what still waits. */
    parts(): Part[];
    /** The text of parts(), as it is copied. */
    text(): string;
}

/** A piece of an entry: text as it is shown, a line of the page's own, or a node that was placed. */
export type Part =
    | {kind: "text"; stream: Stream; text: string}
    | {kind: "notice"; text: string}
    | {kind: "node"; node: HTMLElement; text: string};

/** What the log keeps at most; the oldest goes first, and is counted in a line at the top. */
export interface Limits {
    rows: number;
    characters: number;
}

export interface OutputOptions {
    /** The accessible name of the log; "Log" if missing. */
    label?: string;
    /** 1,000,000 rows (less where the browser cannot scroll as far) and 64 Mi characters if missing. */
    limits?: Partial<Limits>;
    /** Reads output aloud through a live region; see setReadAloud. */
    readAloud?: boolean;
}

/** The log, as `new OutputView(element, options)` builds it in an empty element. */
export interface Output {
    /** The region that scrolls; Ctrl+F, Alt+Up and the like are listened to here. */
    readonly region: HTMLElement;
    /** Rows and characters that are kept now. */
    readonly size: Readonly<Limits>;
    /** Characters that wait to be appended. */
    readonly backlog: number;
    /** Aborted by close(). */
    readonly closed: AbortSignal;

    beginEntry(start: EntryStart): EntryHandle;
    /** Entries that are kept, the oldest first. */
    entries(): readonly EntryHandle[];
    /** A line of the page's own, where the text stands now: in the last entry while that runs, else after it. */
    notice(text: string): void;

    /** clc: hides all that stands here now; it stays in text() and entries(). */
    clear(): void;
    /** home: the same, for no cell can be addressed. */
    home(): void;
    /** Shows again what clear() hid. */
    showCleared(): void;
    /** Removes everything that has ended. */
    forget(): void;

    /** Appends all that waits, now. */
    flush(): void;
    /** All that is kept, code and output, as it is copied; appends what waits. */
    text(): string;

    /** Follows the end again, as "n new lines" does. */
    scrollToEnd(): void;
    /** Moves focus and view to the entry before (-1) or after (1) the one in focus or in view. */
    stepEntry(by: -1 | 1): void;
    /** Aloud keeps fewer rows: the accessibility tree of a million stops the page. */
    setReadAloud(isOn: boolean): void;
    /** Ends timers and listeners and empties the element. */
    close(): void;
}

// Class names for style/log.css; the elements are built here:
//   .log             the region that scrolls          .log-batch     some entries (content-visibility)
//   .entry           <article>; .is-running .is-error .is-folded .is-other .is-cleared
//   .entry-head      .entry-number .entry-code .entry-origin .entry-label .entry-buttons
//   .entry-body      .block-group > .block (.is-error), both with --rows; .placed; .notice
//   .new-lines       the button over the log          .log-dropped   "3,204 earlier lines are not kept"
//   .visually-hidden the live region
//   .block span      .fg-0 ... .fg-15, .bg-0 ... .bg-15, .fg-inverse, .bg-inverse, .bold .faint .italic .underline .strike .conceal;
//                    256 and true colours are inline styles
//   ::highlight(find), ::highlight(find-current), ::highlight(selected-all)
