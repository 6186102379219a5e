/** Some rows of a table, as `numora.rows` gives them. */
export interface Slice {
    rows: number;
    columns: number;
    begin: number;
    names: string[];
    dtypes: (string | null)[];
    numeric: boolean[];
    levels: string[];
    index: string[][];
    cells: string[][];
}

export type AskRows = (begin: number, end: number) => Promise<Slice>;

export interface RowsHandlers {
    onSlice(slice: Slice): void;
    onError(error: Error & {code?: string}): void;
    /** An answer takes long. */
    onLate(): void;
}

const pageRows = 100, mostPages = 50, longMs = 1000;

/** The rows of a table that were asked for last. One request is under way at a time, for what is wanted when it begins. */
export class TableRows {
    private readonly pages = new Map<number, Slice>();
    private wanted = {from: 0, to: 0};
    /** Answers to what was asked before a refresh are dropped. */
    private generation = 0;
    private isAsking = false;

    constructor(private readonly ask: AskRows, private readonly handlers: RowsHandlers) {}

    row(at: number): {labels: string[]; cells: string[]; numeric: boolean[]} | undefined {
        const slice = this.pages.get(Math.floor(at / pageRows)), within = at % pageRows;
        const cells = slice?.cells[within], labels = slice?.index[within];
        return slice && cells && labels && {labels, cells, numeric: slice.numeric};
    }

    /** Asks for the rows from `begin` to before `end` that are not there. */
    want(begin: number, end: number): void {
        this.wanted = {from: Math.floor(begin / pageRows), to: Math.floor(Math.max(begin, end - 1) / pageRows)};
        if (!this.isAsking) void this.next();
    }

    /** Asks for all anew: the table may have changed. */
    refresh(): void {
        ++this.generation;
        this.pages.clear();
        if (!this.isAsking) void this.next();
    }

    private get missing(): number | undefined {
        for (let page = this.wanted.from; page <= this.wanted.to; ++page) if (!this.pages.has(page)) return page;
        return undefined;
    }

    private async next(): Promise<void> {
        const page = this.missing, {generation} = this;
        if (page === undefined) return;
        this.isAsking = true;
        const late = setTimeout(() => this.handlers.onLate(), longMs);
        try {
            const slice = await this.ask(page * pageRows, (page + 1) * pageRows);
            const isWanted = generation === this.generation && page >= this.wanted.from && page <= this.wanted.to;
            if (isWanted) this.keep(page, slice);
        } catch (error) {
            this.isAsking = false;
            return this.handlers.onError(error as Error);  // what is wanted next asks again
        } finally {
            clearTimeout(late);
        }
        this.isAsking = false;
        await this.next();
    }

    private keep(page: number, slice: Slice): void {
        this.pages.set(page, slice);
        for (const oldest of this.pages.keys()) {
            if (this.pages.size <= mostPages) break;
            this.pages.delete(oldest);
        }
        this.handlers.onSlice(slice);
    }
}
