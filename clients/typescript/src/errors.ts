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

interface FailedReply {
    error?: string;
    failure?: {reason?: string};
}

/** What the data of a failed answer say about it. */
export function detailOf(data: unknown): string {
    return (data as {error?: string}).error ?? JSON.stringify(data);
}

/** The error that a failed reply tells: "code:arguments:text" of the server, or what became of the connection. */
export function errorOf(reply: FailedReply): NumoraError {
    const [, code, channel, text] = /^(\d{3}):([^:]*):(.*)$/s.exec(reply.error ?? "") ?? [];
    if (code === "402") return NumoraError.disconnected("the server ended the session");
    if (code) return new NumoraError(code, channel ? `${text} (${channel})` : text);
    return NumoraError.disconnected(reply.error || reply.failure?.reason || "the connection was lost");
}
