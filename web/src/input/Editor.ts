// The editor for code, a chunk of its own: everything of CodeMirror comes through here.

import {acceptCompletion, autocompletion, closeBrackets, closeBracketsKeymap, completionKeymap, completionStatus, startCompletion} from "@codemirror/autocomplete";
import {history, historyKeymap, indentLess, insertNewline, insertNewlineAndIndent, standardKeymap} from "@codemirror/commands";
import {HighlightStyle, StreamLanguage, bracketMatching, indentUnit, syntaxHighlighting} from "@codemirror/language";
import {EditorState, Prec} from "@codemirror/state";
import {EditorView, type KeyBinding, drawSelection, hoverTooltip, keymap} from "@codemirror/view";
import {tags} from "@lezer/highlight";
import {type Asks, completionSource, inspectionText} from "./Completion.js";
import {tokens} from "./tokens.js";

export interface EditorHandlers extends Asks {
    /** Enter: whether the code is complete, and else what the next line begins with. */
    isComplete(code: string): Promise<{complete: boolean; indent: string}>;
    onRun(code: string): void;
    onChange(code: string): void;
    /** An older entry (-1) or a newer one of the history that fits to `text`. */
    recall(by: -1 | 1, text: string): string | undefined;
    /** Ctrl+C without a selection: whether there was something to stop. */
    onStop(): boolean;
    onClear(): void;
    onInspect(name: string): void;
    onSearchHistory(): void;
}

const python = StreamLanguage.define(tokens);
const colours = HighlightStyle.define([
    {tag: tags.keyword, color: "var(--code-keyword)"},
    {tag: tags.string, color: "var(--code-string)"},
    {tag: [tags.number, tags.atom], color: "var(--code-number)"},
    {tag: tags.comment, color: "var(--code-comment)", fontStyle: "italic"},
    {tag: tags.definition(tags.variableName), color: "var(--code-name)"},
]);
const theme = EditorView.theme({
    "&": {backgroundColor: "transparent", color: "var(--text)", maxHeight: "40dvh"},
    "&.cm-focused": {outline: "none"},
    ".cm-content": {fontFamily: "var(--mono)", fontSize: "var(--text-size)", lineHeight: "1.4", padding: "0.4rem 0", caretColor: "var(--text)"},
    ".cm-scroller": {fontFamily: "inherit", lineHeight: "inherit", overflow: "auto"},
    ".cm-cursor": {borderLeftColor: "var(--text)"},
    "&.cm-focused > .cm-scroller > .cm-selectionLayer .cm-selectionBackground, .cm-selectionBackground": {background: "var(--selection)"},
    ".cm-tooltip": {background: "var(--panel)", color: "var(--text)", border: "1px solid var(--line)", borderRadius: "4px"},
    ".cm-tooltip-autocomplete > ul": {fontFamily: "var(--mono)", fontSize: "var(--text-size)"},
    ".cm-tooltip-autocomplete > ul > li[aria-selected]": {background: "var(--accent)", color: "var(--on-accent)"},
    ".cm-inspection": {padding: "0.5rem", maxWidth: "60ch", maxHeight: "20rem", overflow: "auto", whiteSpace: "pre-wrap", fontFamily: "var(--mono)"},
    ".cm-matchingBracket": {background: "var(--selection)", outline: "none"},
});

/** Where Enter was pressed, and what stood behind it; whether a line was begun there at once. */
interface Entered {
    at: number;
    rest: string;
    readonly isLine: boolean;
}

export class Editor {
    private readonly view: EditorView;
    private entering: Promise<void> = Promise.resolve();
    /** The Enters that have no answer yet, the oldest first. */
    private readonly entered: Entered[] = [];
    /** Tab leaves the editor next. */
    private isFree = false;

    /** `parent` is in a shadow root, which adopts the styles, as the page's policy wants it. */
    constructor(root: ShadowRoot, parent: HTMLElement, private readonly handlers: EditorHandlers) {
        this.view = new EditorView({root, parent, state: EditorState.create({extensions: [
            python, syntaxHighlighting(colours), theme, history(), drawSelection(), bracketMatching(), closeBrackets(),
            Prec.high(EditorView.inputHandler.of(endQuote)), indentUnit.of("    "), EditorState.tabSize.of(4), EditorView.lineWrapping,
            EditorView.contentAttributes.of({"aria-label": "Code", autocapitalize: "off", autocorrect: "off", spellcheck: "false"}),
            autocompletion({override: [completionSource(handlers)], activateOnTyping: false, interactionDelay: 0, icons: false}),
            hoverTooltip(async (view, position) => this.tooltip(view, position)),
            Prec.highest(keymap.of(this.keys)),
            keymap.of([...closeBracketsKeymap, ...completionKeymap, ...historyKeymap, ...standardKeymap]),
            EditorView.updateListener.of(({docChanged, changes}) => {
                if (!docChanged) return;
                for (const mark of this.entered) mark.at = changes.mapPos(mark.at, mark.isLine ? 1 : -1);
                handlers.onChange(this.code);
            }),
            EditorView.domEventHandlers({focus: () => void (this.isFree = false)}),
        ]})});
    }

    get code(): string {
        return this.view.state.doc.toString();
    }

    set code(text: string) {
        this.view.dispatch({changes: {from: 0, to: this.view.state.doc.length, insert: text}, selection: {anchor: text.length}, scrollIntoView: true});
    }

    get hasFocus(): boolean {
        return this.view.hasFocus;
    }

    focus(): void {
        this.view.focus();
    }

    /** The page would hold on to it. */
    close(): void {
        this.view.destroy();
    }

    insert(text: string): void {
        this.view.dispatch(this.view.state.replaceSelection(text), {scrollIntoView: true});
        this.focus();
    }

    /** Runs what is complete; the others wait for the answer to the one before, each at its place. */
    enter(mustRun = false): Promise<void> {
        const {doc, selection: {main: {head: at}}} = this.view.state;
        const mark = {at, rest: doc.sliceString(at), isLine: this.entered.length > 0};
        if (mark.isLine) this.view.dispatch({changes: {from: at, insert: "\n"}, selection: {anchor: at + 1}});
        this.entered.push(mark);
        return (this.entering = this.entering.then(() => this.tryToRun(mark, mustRun)).finally(() => this.entered.shift()));
    }

    // What is typed until the answer comes stands after the end of line, as it was meant.
    private async tryToRun(mark: Entered, mustRun: boolean): Promise<void> {
        const read = () => this.code.slice(0, mark.at) + mark.rest;
        const code = read(), isEmpty = code.trim() === "";
        const {complete, indent} = mustRun || isEmpty ? {complete: true, indent: ""} : await this.handlers.isComplete(code);
        const {doc, selection: {main: {head}}} = this.view.state, line = mark.isLine ? "\n" : "", next = mark.at + line.length;
        if (read() !== code || doc.sliceString(mark.at, next) !== line || !this.code.slice(next).endsWith(mark.rest)) return;  // another text
        if (!complete) {
            const insert = mark.isLine ? indent : `\n${indent}`;
            return this.view.dispatch({changes: {from: next, insert}, scrollIntoView: true, ...(head === next && {selection: {anchor: next + insert.length}})});
        }
        if (isEmpty && !mark.isLine) return;
        this.view.dispatch({changes: [{from: 0, to: next}, {from: doc.length - mark.rest.length, to: doc.length}], scrollIntoView: true});
        for (const later of this.entered) later.rest = later.rest.slice(0, later.rest.length - mark.rest.length);
        if (!isEmpty) this.handlers.onRun(code.replace(/\n\s*$/, ""));
    }

    private readonly keys: KeyBinding[] = [
        {key: "Enter", run: view => completionStatus(view.state) === "active" ? acceptCompletion(view) : this.enterKey()},
        {key: "Shift-Enter", run: insertNewline},
        {key: "Mod-Enter", run: () => (void this.enter(true), true)},
        {key: "Tab", run: view => this.tab(view), shift: view => !this.isFree && indentLess(view)},
        {key: "Escape", run: view => this.escape(view)},
        {key: "ArrowUp", run: view => this.recall(view, -1)},
        {key: "ArrowDown", run: view => this.recall(view, 1)},
        {key: "Mod-i", run: view => (this.handlers.onInspect(nameAt(view.state, view.state.selection.main.head)), true)},
        {key: "Ctrl-c", run: view => view.state.selection.main.empty && this.handlers.onStop()},
        {key: "Mod-k", run: () => (this.code = "", true)},
        {key: "Mod-l", run: () => (this.handlers.onClear(), true)},
        {key: "Ctrl-r", run: () => (this.handlers.onSearchHistory(), true)},
    ];

    private enterKey(): boolean {
        const {main} = this.view.state.selection;
        // In the middle of several lines it is a new line, and where only brackets follow that are not typed yet.
        const rest = this.view.state.doc.sliceString(main.to);
        if (rest.includes("\n")) return insertNewline(this.view);
        if (/^[)\]}]+\s*$/.test(rest)) return insertNewlineAndIndent(this.view);
        void this.enter();
        return true;
    }

    private tab(view: EditorView): boolean {
        if (this.isFree) return false;
        if (completionStatus(view.state) === "active") return acceptCompletion(view);
        const {head} = view.state.selection.main, before = view.state.doc.lineAt(head).text.slice(0, head - view.state.doc.lineAt(head).from);
        if (/[\w.]$/.test(before)) return startCompletion(view);
        if (before.trim() !== "" || view.state.doc.length === 0) return false;
        view.dispatch(view.state.replaceSelection("    "));
        return true;
    }

    private escape(view: EditorView): boolean {
        if (completionStatus(view.state) !== null) return false;  // closes the list
        this.isFree = true;
        return true;
    }

    private recall(view: EditorView, by: -1 | 1): boolean {
        if (completionStatus(view.state) === "active") return false;
        const {doc, selection: {main}} = view.state;
        if (!main.empty || doc.lineAt(main.head).number !== (by < 0 ? 1 : doc.lines)) return false;
        const text = this.handlers.recall(by, this.code);
        if (text !== undefined) this.code = text;
        return text !== undefined;
    }

    private async tooltip(view: EditorView, position: number) {
        const name = nameAt(view.state, position);
        const {doc} = view.state;
        const text = name === "" ? "" : await inspectionText(this.handlers, name);
        if (text === "" || view.state.doc !== doc) return null;
        return {pos: position, above: true, create: () => {
            const dom = document.createElement("div");
            dom.className = "cm-inspection";
            dom.tabIndex = 0;  // it may scroll
            dom.textContent = text;
            return {dom};
        }};
    }
}

/** A quote that ends a string is one: behind a field of an f-string it would be taken for the beginning of another. */
function endQuote(view: EditorView, from: number, to: number, text: string): boolean {
    const {doc} = view.state, line = doc.lineAt(from), isThere = doc.sliceString(from, from + 1) === text;
    if (!/^['"]$/.test(text) || from !== to || line.text.slice(0, from - line.from).split(text).length % 2 === 1) return false;
    view.dispatch({...(!isThere && {changes: {from, insert: text}}), selection: {anchor: from + 1}, userEvent: "input.type"});
    return true;
}

/** The dotted name around `position`, up to the word in which that is. */
function nameAt(state: EditorState, position: number): string {
    const line = state.doc.lineAt(position), at = position - line.from;
    const before = /[\p{L}\p{N}_.]*$/u.exec(line.text.slice(0, at))![0], after = /^[\p{L}\p{N}_]*/u.exec(line.text.slice(at))![0];
    return /^[\p{L}_]/u.test(before + after) ? before + after : "";
}
