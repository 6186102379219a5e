// What the server says of its interpreters. All times are in UTC, as "2026-11-22T08:15:00Z".

/** How a life of an interpreter has ended. */
export interface Death {
    life: number;
    /** Such as "signal", "exit status", "memory" and "killed by a client". */
    cause: string;
    /** Such as "SIGSEGV" and "status 3". */
    detail: string;
    /** For people. */
    sentence: string;
    ended: string;
}

/** The same with what helps to find out why. */
export interface DeathRecord extends Death {
    interpreter: string;
    pid: number;
    started: string;
    /** What ran last, with the beginning of its code. */
    request: {type: string; uuid: string; code: string} | null;
    /** How many requests were under way. */
    inFlight: number;
    /** What code has printed last. */
    output: string;
    /** What native code has printed last. */
    rest: string;
    /** In which line each thread was. */
    trace: string;
    peakMemoryBytes: number;
    processorMs: number;
    childrenKilled: number;
}

/** An interpreter of the server. */
export interface Interpreter {
    id: string;
    state: "absent" | "starting" | "ready" | "stopping" | "dead" | "failed";
    /** When it is ready. */
    activity?: "busy" | "idle" | "input";
    /** "deaf" when native code lets no interrupt through, "silent" when the process is stopped. */
    health?: "ok" | "deaf" | "silent";
    life: number;
    since: string;
    /** What runs, and since how many milliseconds. */
    request: {type: string; uuid: string; ms: number} | null;
    memoryBytes: number;
    processorMs: number;
    limits: {memoryMiB: number; cpus: number; enforcedBy: "rlimit" | "cgroup" | "none"};
    lastDeath: Death | null;
}

/** What an interpreter is to be like; what is not given is as the server has it. */
export interface InterpreterOptions {
    id?: string;
    /** Its working directory. */
    folder?: string;
    /** The folder of a virtual environment. */
    venv?: string;
    /** Further variables of its environment. */
    env?: Record<string, string>;
    memoryMiB?: number;
    cpus?: number;
    /** It is ended when it was idle for so long; with `ifWatched` false not while somebody is subscribed to it. */
    idleMinutes?: number;
    ifWatched?: boolean;
    restart?: "demand" | "always" | "never";
}
