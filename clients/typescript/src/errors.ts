import type {Death} from "./interpreters.js";

/** A request that was refused, failed or was lost. */
export class NumoraError extends Error {
    /**
     * `code`: a fault's code such as "NUMORA.CodeError", the number of a Bayeux error such as "403", "invalid" for what
     * the client itself refuses, or "disconnected" when the session has ended and it is not known whether the request has
     * run. `identifier`: of an error that
     * has one of its own, such as "NUMORA:services:MissingRequiredCapability".
     */
    constructor(readonly code: string, message: string, readonly identifier = "") {
        super(message);
        this.name = "NumoraError";
    }

    static disconnected(message: string): NumoraError {
        return new NumoraError("disconnected", message);
    }
}

/** The interpreter has died while the request was under way. Its variables are lost; the next request starts it anew. */
export class InterpreterDied extends NumoraError {
    readonly sentence: string;
    override readonly cause: string;
    readonly detail: string;
    /** The number of the life that has ended. */
    readonly life: number;

    constructor(readonly death: Death, code = "502") {
        super(code, death.sentence);
        this.name = "InterpreterDied";
        ({sentence: this.sentence, cause: this.cause, detail: this.detail, life: this.life} = death);
    }
}

interface FailedReply {
    error?: string;
    failure?: {reason?: string};
    data?: unknown;
    ext?: {connector?: {death?: Death}};
}

/** The error that a failed reply tells: "code:arguments:text" of the server, or what became of the connection. */
export function errorOf(reply: FailedReply): NumoraError {
    const [, code, channel, text] = /^(\d{3}):([^:]*):(.*)$/s.exec(reply.error ?? "") ?? [];
    const death = reply.ext?.connector?.death;
    if (death) return new InterpreterDied(death, code);
    if (code === "402") return NumoraError.disconnected("the server ended the session");
    const detail = (reply.data as {error?: string} | undefined)?.error;  // of the answer to a call
    if (detail) return new NumoraError(code ?? "failed", detail);
    if (code) return new NumoraError(code, channel ? `${text} (${channel})` : `${text}`);
    return NumoraError.disconnected(reply.error || reply.failure?.reason || "the connection was lost");
}
