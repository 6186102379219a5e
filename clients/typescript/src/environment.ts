interface Surroundings {
    window?: Record<string, unknown>;
    WebSocket?: unknown;
    XMLHttpRequest?: unknown;
    process?: {versions?: {node?: string}};
}

/** Why the last WebSocket to an address failed, where the platform says so, which browsers do not. */
export const socketFailures = new Map<string, string>();

/**
 * Makes what the CometD library expects: it takes everything of a browser from `window`. Returns whether HTTP can be
 * used, too, for networks that do not let WebSockets pass.
 */
export async function prepareEnvironment(): Promise<boolean> {
    const surroundings = globalThis as unknown as Surroundings;
    const window = (surroundings.window ??= {
        console,
        setTimeout: globalThis.setTimeout.bind(globalThis),
        clearTimeout: globalThis.clearTimeout.bind(globalThis),
        XMLHttpRequest: surroundings.XMLHttpRequest,
    });
    window.WebSocket ??= surroundings.process?.versions?.node ? await nodeSocket() : surroundings.WebSocket;
    return window.XMLHttpRequest !== undefined;
}

async function nodeSocket(): Promise<unknown> {
    const {WebSocket} = await import("ws");
    return class extends WebSocket {
        constructor(address: string, protocols?: string) {
            super(address, protocols);
            this.on("error", (error: Error) => socketFailures.set(address, error.message));
            this.on("open", () => socketFailures.delete(address));
        }
    };
}
