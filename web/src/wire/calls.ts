// Calls by HTTP to the interpreter at an address, which do not wait for output that is on its way.

import type {Interpreter} from "numora-client";
import {NumoraError} from "numora-client/errors.js";
import {exchange} from "numora-client/http.js";
import type {PromptName, Question} from "./messages.js";

/** What an interpreter does now. */
export interface Activity {
    prompt: PromptName;
    /** For so long. */
    ms: number;
    question?: Pick<Question, "number" | "prompt" | "password"> | undefined;
    /** Of the code that runs. */
    number?: number;
    code?: string | undefined;
}

/** As `numora.state` tells it. */
interface State {
    prompt: PromptName;
    number: number | null;
    seconds: number | null;
    question: Activity["question"] | null;
}

const callMs = 30_000, stateMs = 2000;

function call(server: string, type: string, request: object, signal = AbortSignal.timeout(callMs)): Promise<any> {
    return exchange({server, token: ""}, "POST", `/connector/v1/${type}`, request, signal);
}

export async function interrupt(address: string): Promise<void> {
    await call(address, "Interrupt", {});
}

/** Calls `name` inside of running code. */
export async function ask<Result>(address: string, name: string, arguments_: unknown[] = [], signal?: AbortSignal): Promise<Result> {
    const request = {function: name, arguments: arguments_, nargout: 1, dequeMode: "ppe", outputMode: "ignore"};
    const answer = await call(address, "FEval", request, signal);
    if (answer.isError) throw new NumoraError("failed", answer.messageFaults?.[0]?.message ?? "the call failed");
    return JSON.parse(answer.results)[0];
}

/** Where native code keeps the interpreter from answering, the server tells what it knows; undefined where that is too little. */
export async function activityOf(address: string): Promise<Activity | undefined> {
    const {activity, request, state}: Interpreter = await exchange({server: address, token: ""}, "GET", "");
    if (state !== "ready" || activity === "idle") return {prompt: "BASE_PROMPT", ms: 0};
    const told = await ask<State>(address, "numora.state", [], AbortSignal.timeout(stateMs)).catch(() => undefined);
    if (!told) return activity === "busy" ? {prompt: "NO_PROMPT", ms: request?.ms ?? 0} : undefined;
    const {prompt, number, seconds, question} = told;
    const now = {prompt, ms: 1000 * (seconds ?? 0), question: question ?? undefined};
    if (number === null) return now;
    const [last] = await ask<{number: number; code: string}[]>(address, "numora.history", [1]).catch(() => []);
    return {...now, number, code: last?.number === number ? last.code : undefined};
}
