import type {Style} from "./Rendition.js";
import type {StyledText} from "./StyledText.js";

const address = /\bhttps?:\/\/[^\s<>"'`{}|\\^\x00-\x20\x7f-\x9f]+/g;

interface Link {
    from: number;
    to: number;
    url: string;
}

export const mayHaveLinks = (text: string): boolean => text.includes("http://") || text.includes("https://");

/** The http and https addresses in `text`, without the punctuation of the sentence around them. */
export function linksIn(text: string): Link[] {
    const links: Link[] = [];
    if (!mayHaveLinks(text)) return links;
    for (const {0: found, index} of text.matchAll(address)) {
        const url = withoutPunctuation(found);
        if (URL.canParse(url)) links.push({from: index, to: index + url.length, url});
    }
    return links;
}

// A bracket that closes belongs to the address if that has opened it. One pass: texts may be made to cost more.
function withoutPunctuation(url: string): string {
    let tooMany = 0, to = url.length;
    for (const each of url) tooMany += ")]".includes(each) ? 1 : "([".includes(each) ? -1 : 0;
    for (; to > 0; --to) {
        const last = url[to - 1]!;
        if (")]".includes(last) && tooMany > 0) --tooMany;
        else if (!".,;:!?".includes(last)) break;
    }
    return url.slice(0, to);
}

/** `text` as nodes: spans where it has a style, anchors where it has an address, text everywhere. */
export function styledNodes(text: string, {starts, ends, styles}: StyledText): DocumentFragment {
    const fragment = document.createDocumentFragment();
    const links = linksIn(text);
    let run = 0, link = 0, anchor: HTMLAnchorElement | undefined;
    for (let at = 0; at < text.length;) {
        while (ends[run]! <= at) ++run;
        while (links[link] && links[link]!.to <= at) ++link;
        const style = starts[run]! <= at ? styles[run] : undefined;
        const inLink = links[link] && links[link]!.from <= at ? links[link] : undefined;
        const to = Math.min(style ? ends[run]! : starts[run] ?? text.length, inLink ? inLink.to : links[link]?.from ?? text.length);
        const node = styled(text.slice(at, to), style);
        if (!inLink) anchor = undefined;
        else if (!anchor || inLink.from === at) fragment.append(anchor = anchorTo(inLink.url));
        (anchor ?? fragment).append(node);
        at = to;
    }
    return fragment;
}

function styled(text: string, style: Style | undefined): Node {
    if (!style) return document.createTextNode(text);
    const span = document.createElement("span");
    span.className = style.classes;
    if (style.color) span.style.color = style.color;
    if (style.background) span.style.backgroundColor = style.background;
    span.textContent = text;
    return span;
}

function anchorTo(url: string): HTMLAnchorElement {
    const anchor = document.createElement("a");
    anchor.href = url;
    anchor.target = "_blank";
    anchor.rel = "noopener noreferrer";
    return anchor;
}
