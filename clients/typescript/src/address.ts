import {NumoraError} from "./errors.js";

/** The address of a server without its token and without a slash at the end, and the token. */
export interface Address {
    base: string;
    token: string;
}

/** Takes apart what the server prints, or what a proxy makes of it; in a page it may be relative to the page. */
export function parseAddress(text: string): Address {
    const page = (globalThis as {document?: {baseURI: string}}).document?.baseURI;
    const url = URL.canParse(text, page) ? new URL(text, page) : undefined;
    if (!url || !/^(http|ws)s?:$/.test(url.protocol)) {
        throw new NumoraError("invalid",
            "url must be an address that begins with http://, https://, ws:// or wss://, such as http://127.0.0.1:8350/");
    }
    return {
        base: url.origin.replace(/^ws/, "http") + url.pathname.replace(/\/+$/, ""),
        token: url.searchParams.get("token") ?? "",
    };
}
