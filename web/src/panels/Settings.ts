import {keep, kept} from "../session/storage.js";

/** What the user has chosen for the page, kept in the browser. */
export interface Settings {
    theme: "system" | "light" | "dark";
    /** Per cent. */
    textSize: number;
    readAloud: boolean;
}

const key = "numora.settings";
export const textSizes = [80, 90, 100, 115, 130, 150, 200];

export function readSettings(): Settings {
    return {theme: "system", textSize: 100, readAloud: false, ...kept<Partial<Settings>>(localStorage, key, {})};
}

export function applySettings(settings: Settings): void {
    const {style} = document.documentElement;
    style.colorScheme = settings.theme === "system" ? "light dark" : settings.theme;
    style.setProperty("--text-scale", String(settings.textSize / 100));
    keep(localStorage, key, settings);
}
