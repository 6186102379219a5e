import type {Output} from "./output/api.js";
import {OutputView} from "./output/OutputView.js";
import {Rich} from "./rich/Rich.js";
import {make} from "./rich/dom.js";
import {Answers} from "./session/Answers.js";
import {CodeQueue} from "./session/CodeQueue.js";
import {Session} from "./session/Session.js";
import {keep, kept} from "./session/storage.js";
import {Connection} from "./wire/Connection.js";

/** What stands around the log, which is loaded after it. */
export interface Surroundings {
    update(): void;
    workspaceChanged(isEmpty: boolean): void;
    /** Puts text that was not taken back where it was typed. */
    giveBack(text: string): void;
    /** Puts code where code is typed, in place of `insteadOf` if that stands there. */
    use(code: string, insteadOf: string): void;
}

function isReload(): boolean {
    const [entry] = performance.getEntriesByType("navigation") as PerformanceNavigationTiming[];
    return entry?.type === "reload";
}

/** One interpreter: its log, its connection and its queue. */
export class Workbench {
    readonly element = make("div", "workbench");
    readonly work = make("div", "work");
    readonly log: Output;
    readonly session: Session;
    readonly connection: Connection;
    readonly rich: Rich;
    private surroundings: Surroundings | undefined;
    private readonly returned: string[] = [];

    /** `server` is the address of the server, without a slash at its end. */
    constructor(readonly id: string, server: string) {
        const logHost = make("div", "log-host");
        this.log = new OutputView(logHost, {label: `Log of ${id}`});
        const address = `${server}/interpreters/${id}`;
        this.rich = new Rich(this.log, (code, insteadOf) => this.surroundings?.use(code, insteadOf), address);
        this.connection = new Connection(address, {
            onMessage: message => this.session.take(message),
            onState: state => {
                this.session.linkChanged(state);
                if (state.name === "open") this.surroundings?.workspaceChanged(false);
            },
            onCaughtUp: () => {
                // A copy of a tab, or one that the browser brings back later, must not run what another runs, or was meant for variables that are gone.
                const isSame = isReload() && before.server === this.connection.server;
                if (before.items.length > 0 && !isSame) this.session.returnQueue();
                before.items = [];
                this.session.caughtUp();
            },
            onServerStarted: () => this.session.serverStarted(),
        });
        const before = this.stored<{server?: string; items: string[]}>("queue", {items: []});
        const queue = new CodeQueue(before.items, items => {
            this.store("queue", {server: this.connection.server, items});
            this.surroundings?.update();
        });
        const wire = {
            publish: this.connection.publish.bind(this.connection),
            interrupt: async () => (await import("./rich/nodes.js")).interrupt(address),
            activity: async () => (await import("./rich/nodes.js")).activityOf(address),
        };
        this.session = new Session(this.log, wire, this.rich, queue, new Answers(localStorage, `numora.answers.${id}`, () => this.connection.server), {
            onChange: () => this.surroundings?.update(),
            onWorkspace: isEmpty => this.surroundings?.workspaceChanged(isEmpty),
            onReturned: text => this.giveBack(text),
        });
        this.work.append(logHost);
        this.element.append(this.work);
        void this.connection.open();
    }

    surround(surroundings: Surroundings): void {
        this.surroundings = surroundings;
        for (const text of this.returned.splice(0)) surroundings.giveBack(text);
        surroundings.update();
    }

    /** The interpreter is deleted. */
    close(): void {
        this.connection.close();
        this.log.close();
        this.element.remove();
        for (const name of ["queue", "draft"]) sessionStorage.removeItem(`numora.${name}.${this.id}`);
    }

    /** What is kept for a reload of the page. */
    stored<Value>(name: string, otherwise: Value): Value {
        return kept(sessionStorage, `numora.${name}.${this.id}`, otherwise);
    }

    store(name: string, value: unknown): void {
        keep(sessionStorage, `numora.${name}.${this.id}`, value);
    }

    private giveBack(text: string): void {
        if (this.surroundings) this.surroundings.giveBack(text);
        else this.returned.push(text);
    }
}
