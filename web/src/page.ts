// What is loaded after the log: header, input, panels, keys.

import {exchange} from "numora-client/http.js";
import {Desk} from "./Desk.js";
import {listenToKeys} from "./keys.js";
import {Header} from "./panels/Header.js";
import {applySettings, readSettings} from "./panels/Settings.js";
import {saveTranscript} from "./rich/transcript.js";
import {History} from "./session/History.js";
import type {Workbench} from "./Workbench.js";

const listMs = 10_000, clockMs = 500;

/** `current` gives the workbench of the address, a new one at the first visit. */
export function furnish(server: string, own: string, current: () => Workbench, forget: (id: string) => void): void {
    const settings = readSettings(), history = new History(localStorage), desks = new WeakMap<Workbench, Desk>();
    const ask = (method: string, path = "", body?: object) => exchange({server, token: ""}, method, `/interpreters${path}`, body);
    let ids = [own];

    const header = new Header(document.getElementById("header")!, settings, {
        onSwitch: id => (location.hash = id),
        onCreate: async () => void (location.hash = (await ask("POST", "", {})).id),
        onRestart: id => ask("POST", `/${id}/restart`, {}),
        onDelete: async id => {
            location.hash = id === own ? "default" : own;
            forget(id);  // its connection would complain of the end
            await ask("DELETE", `/${id}`);
        },
        onSave: kind => saveTranscript(desk().workbench.log, kind, desk().workbench.id),
    });

    function desk(): Desk {
        const workbench = current();
        const known = desks.get(workbench);
        if (known) return known;
        const made = new Desk(workbench, history, () => update());
        workbench.log.setReadAloud(settings.readAloud);
        desks.set(workbench, made);
        return made;
    }

    function update(): void {
        const {id} = current(), shown = desks.get(current());
        if (shown) header.update(shown, ids.includes(id) ? ids : [...ids, id]);
    }

    function show(): void {
        desk().input.focus();
        void list();
    }

    async function list(): Promise<void> {
        const answer = await ask("GET").catch(() => undefined);
        if (answer) ids = answer.interpreters.map(({id}: {id: string}) => id);
        update();
    }

    applySettings(settings);
    listenToKeys(desk);
    addEventListener("hashchange", show);
    setInterval(() => {
        if (document.hidden) return;
        current().session.tick();
        update();
    }, clockMs);
    setInterval(() => !document.hidden && void list(), listMs);
    show();
}
