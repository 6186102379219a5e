import type {Loss} from "../wire/messages.js";

/** As in "1.2 MB". */
export function sizeText(bytes: number): string {
    const units = ["bytes", "KB", "MB", "GB"];
    let unit = 0;
    for (; bytes >= 1000 && unit < units.length - 1; ++unit) bytes /= 1000;
    return `${unit === 0 || bytes >= 100 ? Math.round(bytes) : bytes.toFixed(1)} ${units[unit]}`;
}

export function lossText(isGap: boolean, {messages, bytes = 0, channel = ""}: Loss): string {
    const what = channel.startsWith("/eventmgr") ? "events" : "output";
    if (isGap) return bytes > 0 ? `${sizeText(bytes)} not kept by the server` : "Something may be missing here: the server has not kept it";
    return `${messages === undefined ? "" : `${messages.toLocaleString("en")} messages, `}${sizeText(bytes)} of ${what} were dropped here`;
}

/** As in "00:12". */
export function clockText(ms: number): string {
    const seconds = Math.max(0, Math.floor(ms / 1000)), hours = Math.floor(seconds / 3600);
    const [minutes, rest] = [Math.floor(seconds / 60) % 60, seconds % 60].map(each => String(each).padStart(2, "0"));
    return `${hours > 0 ? `${hours}:` : ""}${minutes}:${rest}`;
}
