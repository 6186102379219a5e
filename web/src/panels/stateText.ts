import type {Session} from "../session/Session.js";
import {clockText} from "../session/texts.js";

const deadMs = 30_000, lostMs = 2000;

/** The state of an interpreter in words, as the header and the log's entries show it. */
export function stateText({link, mode, stopping, isBusy, runsSince, life, log}: Session, now = Date.now()): {name: string; text: string} {
    if (link.name === "refused") return {name: "refused", text: "The server has another token: open the address that it printed"};
    if (link.name === "gone") return {name: "refused", text: "Deleted"};
    if (link.name === "lost" && now - link.since > deadMs) {
        return {name: "lost", text: `The server does not answer since ${new Date(link.since).toLocaleTimeString()}`};
    }
    if (link.name === "lost" && now - link.since > lostMs) return {name: "lost", text: "Connection lost, trying again"};
    if (link.name === "connecting") return {name: "running", text: "Connecting"};
    if (stopping === "deaf") return {name: "stopping", text: "The code does not react (native code?). Restart ends it"};
    if (stopping === "asked") {
        const {backlog} = log;
        return {name: "stopping", text: backlog > 100_000 ? `Stopping, ${(backlog / 1e6).toFixed(1)} MB of output still to come` : "Stopping"};
    }
    if (life && life.state === "starting" && !isBusy) return {name: "running", text: "Starting"};
    if (life && life.state === "failed") return {name: "lost", text: "The interpreter has died three times: restart it"};
    const asking = {input: "Waiting for input", password: "Waiting for a password", debugger: "Debugger", keyboard: "Keyboard, until exit()", pause: "Paused"};
    if (mode in asking) return {name: "asking", text: asking[mode as keyof typeof asking]};
    return isBusy ? {name: "running", text: `Running ${clockText(now - runsSince)}`} : {name: "idle", text: "Idle"};
}
