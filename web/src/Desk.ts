import {type Asks, inspectionText} from "./input/Completion.js";
import {InputLine} from "./input/InputLine.js";
import {Selection} from "./output/Selection.js";
import {FindBar} from "./panels/FindBar.js";
import {FiguresPanel, HelpPanel, HistoryPanel} from "./panels/Lists.js";
import {Panels} from "./panels/Panels.js";
import {Workspace} from "./panels/Workspace.js";
import type {History} from "./session/History.js";
import type {Workbench} from "./Workbench.js";
import {ask} from "./wire/calls.js";

const historyLength = 500;

/** What stands around the log of a workbench: input, find, panels. */
export class Desk {
    readonly panels: Panels;
    readonly find: FindBar;
    readonly input: InputLine;
    private readonly help = new HelpPanel();
    private readonly history: HistoryPanel;
    private readonly asks: Asks;

    constructor(readonly workbench: Workbench, history: History, onChange: () => void) {
        const {log, session, connection, rich, work, element} = workbench;
        this.asks = {ask: (name, arguments_, signal) => ask(connection.address, name, arguments_, signal)};
        new Selection(log);
        this.find = new FindBar(log, () => this.input.focus());
        const workspace = new Workspace(this.asks, name => this.input.insert(name));
        this.history = new HistoryPanel(history, code => {
            this.input.setCode(code);
            this.input.focus();
        });
        this.input = new InputLine(session, history, workbench.stored("draft", ""), {
            ask: this.asks.ask,
            onClear: () => log.clear(),
            onInspect: name => void this.inspect(name),
            onSearchHistory: () => {
                this.panels.select("History");
                this.history.focus();
            },
            onDraft: code => workbench.store("draft", code),
        });
        this.panels = new Panels([workspace, new FiguresPanel(rich.figures), this.history, this.help], log.closed);
        work.prepend(this.find.element);
        work.append(this.input.element);
        element.append(this.panels.element);
        workbench.surround({
            update: () => {
                this.input.update();
                onChange();
            },
            workspaceChanged: isEmpty => workspace.changed(isEmpty),
            giveBack: text => this.input.giveBack(text),
            use: (code, insteadOf) => this.input.use(code, insteadOf),
        });
        void this.asks.ask<{code: string}[]>("numora.history", [historyLength])
            .then(known => history.join(known.map(({code}) => code)), () => {});
    }

    private async inspect(name: string): Promise<void> {
        if (name === "") return;
        this.help.tell((await inspectionText(this.asks, name)) || `Nothing is known of ${name}.`);
        this.panels.select("Help");
    }
}
