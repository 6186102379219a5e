// The page: a workbench for each interpreter that was visited, the one of the address in view. All that is not needed to show
// output is loaded after it.

import {Workbench} from "./Workbench.js";

const [, server, own = "default"] = /^(.*?)(?:\/interpreters\/([a-z][a-z0-9-]*))?\/*$/.exec(new URL(".", document.baseURI).href) as unknown as [string, string, string?];
const workbenches = new Map<string, Workbench>();

function current(): Workbench {
    const id = /^#([a-z][a-z0-9-]*)$/.exec(location.hash)?.[1] ?? own;
    const known = workbenches.get(id);
    if (known) return known;
    const workbench = new Workbench(id, server);
    workbenches.set(id, workbench);
    document.getElementById("interpreters")!.append(workbench.element);
    return workbench;
}

function show(): void {
    const shown = current();
    for (const each of workbenches.values()) each.element.hidden = each !== shown;
}

addEventListener("hashchange", show);
// The soft keyboard takes room that the layout does not know of; magnifying the page takes none.
visualViewport?.addEventListener("resize", () => {
    const {height, scale} = visualViewport!;
    if (scale === 1) document.documentElement.style.setProperty("--height", `${height}px`);
});
show();
void import("./page.js").then(({furnish}) => furnish(server, own, current, id => {
    workbenches.get(id)?.close();
    workbenches.delete(id);
}));
