import {Announcer} from "./Announcer.js";
import type {EntryHandle, EntryStart, Limits, Output, OutputOptions} from "./api.js";
import {Box} from "./Box.js";
import {Dresser} from "./Dresser.js";
import {EntryView, type EntryLog} from "./EntryView.js";
import {Follow} from "./Follow.js";
import {Pump} from "./Pump.js";
import {Retention} from "./Retention.js";
import {copy, joined} from "./textOf.js";

const entriesInBatch = 48;
const mostReadableRows = 50;  // in one frame
const calmMilliseconds = 150;  // text comes in bursts: a frame without any is not the end

export class OutputView implements Output {
    readonly region = document.createElement("div");
    private readonly log = new Box(this.region);
    private readonly closing = new AbortController();
    private readonly pump = new Pump(() => this.settle());
    private readonly announcer = new Announcer();
    private readonly retention: Retention;
    private readonly follow: Follow;
    private readonly dresser: Dresser;
    private batch: Box | undefined;
    private rowsBefore = 0;
    private floodedAt = -Infinity;

    constructor(private readonly element: HTMLElement, {label = "Log", limits, readAloud = false}: OutputOptions = {}) {
        const {signal} = this.closing;
        Object.assign(this.region, {className: "log", role: "region", ariaLabel: label, tabIndex: 0});
        this.retention = new Retention(this.region, {rows: 1_000_000, characters: 64 << 20, ...limits});
        this.region.append(this.retention.line);
        this.follow = new Follow(this.region, signal);
        this.dresser = new Dresser(this.region, signal);
        element.append(this.region, this.follow.button, this.announcer.element);
        this.region.addEventListener("click", event => this.clicked(event), {signal});
        document.addEventListener("visibilitychange", () => document.hidden ? this.pump.flush() : this.settle(), {signal});
        this.setReadAloud(readAloud);
    }

    get size(): Limits {
        return {rows: this.log.rows, characters: this.retention.characters};
    }

    get backlog(): number {
        return this.pump.backlog;
    }

    get closed(): AbortSignal {
        return this.closing.signal;
    }

    beginEntry(start: EntryStart): EntryHandle {
        const entry = new EntryView(start, this.entryLog);
        this.retention.addEntry(entry);
        this.pump.push(start.code.length, () => entry.box.attachTo(this.batchWithRoom()));
        return entry;
    }

    entries(): readonly EntryHandle[] {
        return this.retention.entries;
    }

    notice(text: string): void {
        const last = this.retention.entries.at(-1);
        const isOpen = last && (!last.result || last.start.code === "");
        const entry = isOpen ? last : this.beginEntry({code: "", isOwn: true});
        entry.notice(text);
        if (!isOpen) entry.end({isError: false});
    }

    clear(): void {
        this.pump.push(0, () => {
            for (const entry of this.retention.entries) if (!entry.isCleared) entry.hide();
            for (const batch of this.region.querySelectorAll(":scope > .log-batch"))
                if (!batch.querySelector(":scope > .entry:not(.is-cleared)")) batch.classList.add("is-cleared");
            this.batch = undefined;
        });
    }

    home(): void {
        this.clear();
    }

    showCleared(): void {
        this.pump.push(0, () => {
            for (const entry of this.retention.entries) entry.isCleared = false;
            for (const element of this.region.querySelectorAll(".is-cleared")) element.classList.remove("is-cleared");
        });
    }

    forget(): void {
        this.pump.push(0, () => {
            for (const entry of [...this.retention.entries]) if (entry.result) this.retention.forget(entry);
        });
    }

    flush(): void {
        this.pump.flush();
    }

    text(): string {
        this.flush();
        return joined(this.retention.entries.flatMap(entry => [{text: entry.start.code, isPrinted: false}, {text: entry.text(), isPrinted: false}]));
    }

    scrollToEnd(): void {
        this.follow.toEnd();
    }

    stepEntry(by: -1 | 1): void {
        const shown = this.retention.entries.filter(entry => entry.start.code !== "" && entry.element.checkVisibility());
        const inFocus = shown.findIndex(entry => entry.element.contains(document.activeElement));
        const {top, bottom} = this.region.getBoundingClientRect();
        const target = inFocus >= 0 ? shown[inFocus + by]
            : by > 0 ? shown.find(entry => entry.element.getBoundingClientRect().bottom > top)
            : shown.findLast(entry => entry.element.getBoundingClientRect().top < bottom);
        target?.element.focus({preventScroll: true});
        target?.element.scrollIntoView({block: "start"});
    }

    setReadAloud(isOn: boolean): void {
        this.announcer.isOn = this.retention.isReadAloud = isOn;
    }

    close(): void {
        this.closing.abort();
        this.element.replaceChildren();
    }

    private readonly entryLog: EntryLog = {
        later: (size, run) => this.pump.push(size, run),
        flush: () => this.pump.flush(),
        added: (items, characters) => this.retention.add(items, characters),
        written: (entry, text) => this.announcer.write(entry, text),
    };

    private settle(): void {
        const added = this.log.rows - this.rowsBefore;
        Box.settle();
        this.trim();
        this.rowsBefore = this.log.rows;
        const isIdle = this.pump.backlog === 0;
        this.announcer.settle(isIdle);
        if (document.hidden) return;
        const now = performance.now();
        if (!isIdle || added > mostReadableRows) this.floodedAt = now;
        const isFlooded = this.follow.isFollowing && now - this.floodedAt < calmMilliseconds;
        if (isFlooded) this.pump.push(0, () => {});  // to settle again when nothing more comes
        this.dresser.settle(isFlooded);
        this.follow.settle(added);
    }

    private trim(): void {
        if (!this.retention.isBeyond(this.log.rows)) return;
        this.follow.hold(() => {
            while (this.retention.isBeyond(this.log.rows) && this.retention.removeOldest());
            this.retention.showDropped();
            Box.settle();
        });
    }

    private batchWithRoom(): Box {
        if (this.batch && this.batch.count < entriesInBatch) return this.batch;
        this.batch = Box.make("log-batch", this.log);
        this.follow.watch(this.batch.element);
        return this.batch;
    }

    private clicked({target}: Event): void {
        const button = (target as Element).closest<HTMLElement>("[data-action]");
        const entry = button && this.retention.entries.find(each => each.element.contains(button));
        if (button?.dataset["action"] === "fold") entry?.fold(!entry.element.classList.contains("is-folded"));
        else if (button?.dataset["action"] === "copy-code") void copy(entry!.start.code);
        else if (button?.dataset["action"] === "copy-output") void copy(entry!.text());
    }
}
