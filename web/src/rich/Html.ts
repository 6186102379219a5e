// A chunk of its own, loaded with the first HTML that code shows.

import DOMPurify from "dompurify";

/** What a style could fetch something with, or hide it by an escape. */
const fetches = /url\s*\(|image-set|image\s*\(|src\s*\(|@import|@font-face|expression|\\/i;

const purify = DOMPurify(window);
purify.addHook("uponSanitizeElement", node => {
    if (node.nodeName === "STYLE" && fetches.test(node.textContent ?? "")) node.parentNode?.removeChild(node);
});
purify.addHook("uponSanitizeAttribute", (_node, data) => {
    const {attrName: name, attrValue: value} = data;
    if (["srcset", "poster", "background", "action", "formaction", "ping", "target"].includes(name)) data.keepAttr = false;
    if (name === "src" && !/^data:image\//i.test(value)) data.keepAttr = false;
    if (name === "href" && !/^https?:\/\//i.test(value)) data.keepAttr = false;
    if (name === "style" && fetches.test(value)) data.keepAttr = false;
});
purify.addHook("afterSanitizeAttributes", node => {
    if (node.nodeName === "TH" && node.textContent?.trim() === "") node.setAttribute("role", "cell");  // the corner of many a table names nothing
    if (node.nodeName !== "A" && node.nodeName !== "AREA") return;
    node.setAttribute("target", "_blank");
    node.setAttribute("rel", "noopener noreferrer");
});

const style = `
    :host { display: block; contain: content; overflow: auto; max-height: 30rem; color: var(--text); }
    table { border: none; border-collapse: collapse; font-variant-numeric: tabular-nums; }
    th, td { padding: 0.15rem 0.6rem; text-align: right; border: none; border-bottom: 1px solid var(--line); white-space: pre; }
    thead { position: sticky; top: 0; background: var(--panel); }
    a { color: var(--accent-text); }
    img { max-width: 100%; }`;

// What is taken out anyway: the page's policy would complain of each while the text is parsed.
function withoutComplaints(html: string): string {
    return html.replace(/<base\b[^>]*>?/gi, "").replace(/<[a-z][^>]*(?:>|$)/gi, tag => tag.replace(/\bon\w+(?=\s*=)/gi, "data-removed"));
}

/** HTML that code shows, without whatever could run, send or fetch anything, in a shadow root. */
export function showHtml(host: HTMLElement, html: string): void {
    const root = host.shadowRoot ?? host.attachShadow({mode: "open"});
    const fragment = purify.sanitize(withoutComplaints(html), {
        USE_PROFILES: {html: true},
        ADD_TAGS: ["style"],
        FORCE_BODY: true,  // else a style at the beginning is dropped
        FORBID_TAGS: ["form", "input", "button", "select", "textarea", "option", "audio", "video", "source", "track", "dialog", "link", "meta", "base"],
        RETURN_DOM_FRAGMENT: true,
    });
    const sheet = new CSSStyleSheet();
    sheet.replaceSync(style);
    root.adoptedStyleSheets = [sheet];
    root.replaceChildren(fragment);
    // Long tables scroll, and can be reached by the keyboard.
    host.tabIndex = 0;
    host.role = "region";
    host.ariaLabel = "Table or text that was shown";
}
