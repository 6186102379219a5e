// A page in Chromium with the output view alone, under the policy of the console. The browser is at the path in the environment variable CHROMIUM.

import {bundled, chromium, styleOfLog} from "./modules.js";

const policy = "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; require-trusted-types-for 'script'; trusted-types 'none'";
const html = `<!DOCTYPE html><meta charset="utf-8"><style>html { color-scheme: light } body { margin: 0 } #log { position: relative; display: flex; flex-direction: column; height: 100vh }
/*style*/</style><div id="log"></div><script type="module" src="page.js"></script>`;
const script = `import {Find, OutputView, Selection} from "./view.js";
globalThis.make = options => {
    globalThis.view?.close();
    globalThis.view = new OutputView(document.getElementById("log"), options);
    new Selection(view);
    return view;
};
globalThis.find = (query, options) => (globalThis.found?.close(), globalThis.found = new Find(view, query, options));
globalThis.frame = () => new Promise(done => requestAnimationFrame(() => requestAnimationFrame(done)));
globalThis.entry = (code = "code") => view.beginEntry({code, isOwn: true});`;

export class ViewPage {
    /** What the page complained about: its console, errors, and the policy. */
    complaints = [];

    static async open(options = {}) {
        const self = new ViewPage();
        self.browser = await chromium.launch({executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium", ...options});
        self.context = await self.browser.newContext({permissions: ["clipboard-read", "clipboard-write"], viewport: {width: 1280, height: 800}});
        const bodies = {"/": html.replace("/*style*/", await styleOfLog()), "/page.js": script, "/view.js": await bundled("output/OutputView.ts", "output/Find.ts", "output/Selection.ts")};
        await self.context.route("**/*", route => {
            const {pathname} = new URL(route.request().url());
            const contentType = pathname === "/" ? "text/html" : "text/javascript";
            return route.fulfill({body: bodies[pathname] ?? "", contentType, headers: {"Content-Security-Policy": policy}});
        });
        self.page = await self.context.newPage();
        self.page.on("console", message => self.complaints.push(message.text()));
        self.page.on("pageerror", error => self.complaints.push(error.message));
        await self.page.goto("https://console.test/");
        await self.page.evaluate(() => void make());
        return self;
    }

    close() {
        return this.browser.close();
    }
}
