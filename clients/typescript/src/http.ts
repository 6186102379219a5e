import type {Address} from "./address.js";
import {InterpreterDied, NumoraError} from "./errors.js";
import type {Death} from "./interpreters.js";

/** Milliseconds until an answer counts as lost, unless told; a restart waits for the old life, and 30 seconds for the new one. */
const most = 60_000;

/** The answer to a request to a path of the server: for interpreters as such, where Bayeux is for what they run. */
export async function exchange({server, token}: Address, method: string, path: string, body?: object, signal = AbortSignal.timeout(most)): Promise<any> {
    const headers = {"Content-Type": "application/json", ...(token && {Authorization: `Bearer ${token}`})};
    let status: number, text: string;
    try {
        const response = await fetch(server + path, {method, headers, body: body && JSON.stringify(body), signal});
        ({status} = response);
        text = await response.text();
    } catch (error) {
        const {message, cause} = error as Error;
        throw NumoraError.disconnected(`the server at ${server} cannot be reached: ${(cause as Error | undefined)?.message ?? message}`);
    }
    const answer = objectIn(text);
    if (status < 400 && answer) return answer;
    if (typeof answer?.error !== "string") {
        throw new NumoraError(`${status}`, `there must be a server at ${server}, but it answers with the HTTP status ${status}`);
    }
    if (answer.death) throw new InterpreterDied(answer.death, `${status}`);
    throw new NumoraError(`${status}`, answer.error);
}

function objectIn(text: string): {error?: unknown; death?: Death} | undefined {
    try {
        const value = JSON.parse(text || "{}");
        return value instanceof Object ? value : undefined;
    } catch {
        return undefined;
    }
}
