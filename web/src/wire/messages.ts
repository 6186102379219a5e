// Names of channels, and what their messages hold: docs/wire.md and docs/events.md.

import type {DeathRecord} from "numora-client";

/** By which the page knows code that was entered in a page. */
export const clientType = "numora-web";

const responses = "/eval/response/";
const events = "/eventmgr/0/";
const tags = ["status", "workspace", "figure", "progress", "evaluation", "display", "clear", "error", "input"] as const;

export const channels = {
    request: "/eval/request",
    output: `${responses}output`,
    error: `${responses}error`,
    completion: `${responses}completion`,
    prompt: `${responses}iqminput`,
    clear: `${responses}commandwindow/clear`,
    home: `${responses}commandwindow/home`,
    suggest: `${responses}suggest`,
    interpreter: "/connector/interpreter",
    gap: "/connector/gap",
    dropped: "/connector/dropped",
} as const;

/** All that the page listens to, in one subscription: the order over channels is that of the numbers. */
export const subscribed = [`${responses}**`, channels.interpreter, ...tags.map(tag => events + tag)];

export type Tag = (typeof tags)[number];

/** The tag of an event's channel. */
export function tagOf(channel: string): Tag | undefined {
    return channel.startsWith(events) ? (channel.slice(events.length) as Tag) : undefined;
}

export type PromptName = "BASE_PROMPT" | "NO_PROMPT" | "INPUT_PROMPT" | "KEYBOARD_PROMPT" | "DEBUG_PROMPT" | "PAUSE_PROMPT" | "INCOMPLETE_BLOCK_PROMPT";

export interface Evaluation {
    number: number;
    request: string | null;
    code: string;
    clientType: string;
    state: "begun" | "ended";
    isError: boolean | null;
    seconds: number | null;
}

export interface Question {
    request: string | null;
    prompt: string;
    password: boolean;
    number: number;
}

export interface Failure {
    request: string | null;
    name: string;
    value: string;
    traceback: string[];
}

export interface Figure {
    number: number;
    title: string;
    width: number;
    height: number;
    png: string;
    svg: string | null;
}

export interface ProgressEvent {
    id: number | string;
    label: string;
    done: number;
    total: number | null;
    seconds: number;
    ended: boolean;
}

export interface Bundle {
    request: string | null;
    kind: "display" | "update" | "result";
    data: Record<string, unknown>;
    metadata: Record<string, any>;
    transient: {display_id?: string};
    note?: string;
}

export interface Life {
    id: string;
    life: number;
    state: "absent" | "starting" | "ready" | "stopping" | "dead" | "failed";
    death: DeathRecord | null;
}

/** What is lost, of "gap" or "dropped". */
export interface Loss {
    channel?: string;
    messages?: number;
    bytes?: number;
}
