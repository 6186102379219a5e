import {html, nothing, render} from "lit-html";
import type {Desk} from "../Desk.js";
import {type Settings, applySettings, textSizes} from "./Settings.js";
import {stateText} from "./stateText.js";

export interface HeaderHandlers {
    onSwitch(id: string): void;
    onCreate(): Promise<void>;
    onRestart(id: string): Promise<unknown>;
    onDelete(id: string): Promise<void>;
    onSave(kind: "txt" | "md" | "ipynb"): void;
}

const keys = [
    ["Enter", "run, if the code is complete"], ["Shift+Enter", "new line"], ["Ctrl+Enter", "run in any case"],
    ["Up, Down", "history that begins with what is typed"], ["Ctrl+R", "search the history"], ["Tab", "complete, or indent; after Escape: go on"],
    ["Ctrl+C, Ctrl+.", "stop"], ["Escape", "close, or leave the editor"], ["Ctrl+L, Ctrl+K", "clear the log, the input"],
    ["Ctrl+F, F3", "find, next"], ["Alt+Up, Alt+Down", "previous, next entry"], ["F6", "next region"], ["Ctrl+I", "about the name at the cursor"],
];

/** Name, interpreter, state, Stop, menu. No dialogs: what loses something asks in its place. */
export class Header {
    /** What a second click would do. */
    private asks: "restart" | "delete" | undefined;
    private error = "";

    constructor(private readonly element: HTMLElement, private readonly settings: Settings, private readonly handlers: HeaderHandlers) {}

    update(current: Desk, ids: readonly string[]): void {
        const {panels, find, input, workbench: {session, id}} = current, state = stateText(session);
        const canStop = session.isBusy && session.link.name === "open";
        const losesFocus = !canStop && document.activeElement === this.element.querySelector(".stop");
        render(html`<h1>Numora</h1>
            <label class="interpreter"><span>interpreter</span> <select aria-label="Interpreter" @change=${(event: Event) => this.handlers.onSwitch((event.target as HTMLSelectElement).value)}>
                ${ids.map(each => html`<option value=${each} ?selected=${each === id} .selected=${each === id}>${each}</option>`)}</select></label>
            <span class="state" data-state=${state.name}><span class="dot" aria-hidden="true"></span><span>${state.text}</span></span>
            <button type="button" class="stop" ?disabled=${!canStop} @click=${() => void session.stop()}>Stop</button>
            <span class="space"></span>
            <button type="button" class="wide" @click=${() => find.open()}>Find</button>
            <button type="button" aria-pressed=${panels.isOpen} @click=${() => panels.toggle()}>Panels</button>
            <button type="button" popovertarget="menu">Menu</button>
            <div id="menu" popover @toggle=${() => this.reset(current, ids)}>${this.menu(current, ids)}</div>`, this.element);
        if (losesFocus) input.focus();
        document.title = `${state.name === "idle" ? "" : `${state.text} \u2013 `}Numora${id === "default" ? "" : ` ${id}`}`;
        document.body.dataset.state = state.name;
    }

    private menu(current: Desk, ids: readonly string[]) {
        const {settings, handlers} = this, {session, log, id} = current.workbench;
        const change = (apply: () => void) => () => {
            apply();
            applySettings(settings);
            log.setReadAloud(settings.readAloud);
            this.update(current, ids);
        };
        const ask = (what: "restart" | "delete", run: () => Promise<unknown>) => async () => {
            const isSure = this.asks === what;
            this.asks = isSure ? undefined : what;
            if (isSure) await run().then(() => (this.error = ""), error => (this.error = (error as Error).message));
            this.update(current, ids);
        };
        return html`<section aria-label="Log"><h2>Log</h2>
                <button type="button" @click=${() => handlers.onSave("txt")}>Save as text</button>
                <button type="button" @click=${() => handlers.onSave("md")}>Save as Markdown</button>
                <button type="button" @click=${() => handlers.onSave("ipynb")}>Save as notebook</button>
                <button type="button" popovertarget="menu" @click=${() => current.find.open()}>Find</button>
                <button type="button" @click=${() => log.clear()}>Clear</button>
                <button type="button" @click=${() => log.showCleared()}>Show what was cleared</button></section>
            <section aria-label="Interpreter"><h2>Interpreter ${id}</h2>
                <button type="button" @click=${ask("restart", () => handlers.onRestart(id))}>${this.asks === "restart" ? "Restart: all variables are lost" : "Restart\u2026"}</button>
                <button type="button" @click=${() => handlers.onCreate().catch(error => {
                    this.error = (error as Error).message;
                    this.update(current, ids);
                })}>New interpreter</button>
                ${id === "default" ? nothing : html`<button type="button" @click=${ask("delete", () => handlers.onDelete(id))}>${
                    this.asks === "delete" ? "Delete: its variables and its log are lost" : "Delete\u2026"}</button>`}
                ${session.life ? html`<p class="quiet">Life number ${session.life.life}</p>` : nothing}
                <p role="alert">${this.error || nothing}</p></section>
            <section aria-label="Page"><h2>Page</h2>
                <label>Theme <select @change=${(event: Event) => change(() => (settings.theme = (event.target as HTMLSelectElement).value as Settings["theme"]))()}>
                    ${(["system", "light", "dark"] as const).map(each => html`<option value=${each} ?selected=${each === settings.theme}>${each}</option>`)}</select></label>
                <label>Text size <select @change=${(event: Event) => change(() => (settings.textSize = Number((event.target as HTMLSelectElement).value)))()}>
                    ${textSizes.map(each => html`<option value=${each} ?selected=${each === settings.textSize}>${each} %</option>`)}</select></label>
                <label><input type="checkbox" .checked=${settings.readAloud} @change=${change(() => (settings.readAloud = !settings.readAloud))}> Read output aloud</label></section>
            <section aria-label="Keys"><h2>Keys</h2><table>${keys.map(([key, text]) => html`<tr><th scope="row">${key}</th><td>${text}</td></tr>`)}</table></section>`;
    }

    private reset(current: Desk, ids: readonly string[]): void {
        this.asks = undefined;
        this.error = "";
        this.update(current, ids);
    }
}
