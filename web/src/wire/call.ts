import {NumoraError} from "numora-client/errors.js";

export interface Answer {
    isError?: boolean;
    results?: string;
    messageFaults?: {message: string}[];
}

/** A request by HTTP to the interpreter at `address`; it does not stand behind queued output. The cookie shows the token. */
export async function call(address: string, type: string, request: object, signal?: AbortSignal): Promise<Answer> {
    let response: Response;
    try {
        response = await fetch(`${address}/connector/v1/${type}`, {
            method: "POST",
            headers: {"Content-Type": "application/json"},
            body: JSON.stringify(request),
            signal: signal ?? AbortSignal.timeout(30_000),
        });
    } catch (error) {
        throw NumoraError.disconnected(`the server cannot be reached: ${(error as Error).message}`);
    }
    const answer = await response.json().catch(() => ({}));
    if (!response.ok) throw new NumoraError(`${response.status}`, answer.error ?? `the server answers with the HTTP status ${response.status}`);
    return answer;
}
