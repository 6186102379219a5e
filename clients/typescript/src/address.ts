import {NumoraError} from "./errors.js";

const id = "[a-z][a-z0-9-]{0,62}";

/** The address of a server without its token and without a slash at the end, and the token. */
export interface Address {
    server: string;
    /** The default one unless it is given. */
    interpreter?: string;
    token: string;
}

/** Where the server has what is of an interpreter. */
export function pathOf(interpreter: string): string {
    if (!new RegExp(`^${id}$`).test(interpreter)) {
        throw new NumoraError("invalid", "the id of an interpreter must be of 1 to 63 letters a to z, digits and -, and begin with a letter");
    }
    return `/interpreters/${interpreter}`;
}

/** Takes apart what the server prints, or what a proxy makes of it; in a page it may be relative to the page. */
export function parseAddress(text: string): Address {
    const page = (globalThis as {document?: {baseURI: string}}).document?.baseURI;
    const url = URL.canParse(text, page) ? new URL(text, page) : undefined;
    if (!url || !/^(http|ws)s?:$/.test(url.protocol)) {
        throw new NumoraError("invalid",
            "url must be an address that begins with http://, https://, ws:// or wss://, such as http://127.0.0.1:8350/");
    }
    const base = url.origin.replace(/^ws/, "http") + url.pathname.replace(/\/+$/, "");
    const [, server, interpreter] = new RegExp(`^(.*)/interpreters/(${id})$`).exec(base) ?? [, base];
    return {server, interpreter, token: url.searchParams.get("token") ?? ""};
}
