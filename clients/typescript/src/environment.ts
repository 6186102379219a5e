interface Surroundings {
    window?: Record<string, unknown>;
    WebSocket?: unknown;
}

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
    });
    window.WebSocket ??= surroundings.WebSocket ?? (await import("ws")).WebSocket;
    return window.XMLHttpRequest !== undefined;
}
