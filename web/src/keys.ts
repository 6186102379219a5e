import type {Desk} from "./Desk.js";

/** The keys that work everywhere in the page; those of the editor are its own. */
export function listenToKeys(current: () => Desk): void {
    addEventListener("keydown", event => {
        if (event.defaultPrevented || event.isComposing) return;
        if (pressed(event, current())) event.preventDefault();
    });
}

/** Whether the key was used. */
function pressed(event: KeyboardEvent, desk: Desk): boolean {
    const {key, ctrlKey, altKey, shiftKey} = event, isCommand = ctrlKey || event.metaKey;
    const {find, panels, input, workbench: {log, session}} = desk;
    if (isCommand && key === ".") return session.isBusy && (void session.stop(), true);
    if (ctrlKey && !shiftKey && key === "c") return canStop(desk) && (void session.stop(), true);
    if (isCommand && key === "f" && find.takesKey()) return find.open(), true;
    if (key === "F3" && find.isOpen) return find.step(shiftKey), true;
    if (isCommand && key === "l") return log.clear(), true;
    if (altKey && (key === "ArrowUp" || key === "ArrowDown")) return log.stepEntry(key === "ArrowUp" ? -1 : 1), true;
    if (key === "F6") return nextRegion(desk, shiftKey ? -1 : 1), true;
    if (key === "Escape") {
        if (find.isOpen) return find.close(), true;
        if (panels.isOpen && panels.isSheet) return panels.toggle(false), input.focus(), true;
    }
    return false;
}

// Where something is selected, the key copies it.
function canStop({workbench: {session}}: Desk): boolean {
    const field = document.activeElement;
    const isSelecting = field instanceof HTMLInputElement && field.selectionStart !== field.selectionEnd;
    return session.isBusy && !isSelecting && document.getSelection()?.isCollapsed !== false;
}

function nextRegion({input, panels, workbench: {log}}: Desk, by: 1 | -1): void {
    const header = document.getElementById("header")!;
    const regions: {has: Element; focus(): void}[] = [
        {has: log.region, focus: () => log.region.focus()},
        {has: input.element, focus: () => input.focus()},
        ...(panels.isOpen ? [{has: panels.element, focus: () => panels.element.querySelector<HTMLElement>("[aria-selected=true]")?.focus()}] : []),
        {has: header, focus: () => header.querySelector<HTMLElement>("select, button:enabled")?.focus()},
    ];
    const at = regions.findIndex(({has}) => has.contains(document.activeElement));
    regions[(at + by + regions.length) % regions.length]!.focus();
}
