// Builds the page into a folder, "dist" unless one is given: index.html, and below assets/ all else, under names with a
// hash of their contents, each with a brotli and a gzip beside it. Fails when the scripts are larger than they may be.

import {createHash} from "node:crypto";
import {mkdir, readFile, readdir, rm, writeFile} from "node:fs/promises";
import {basename, join} from "node:path";
import {promisify} from "node:util";
import {brotliCompress, constants, gzip} from "node:zlib";
import {build} from "esbuild";

const KiB = 1024;
/** Of the scripts, compressed with brotli. */
const budget = {inAll: 150 * KiB, first: 25 * KiB};
const folder = process.argv[2] ?? "dist";
const assets = join(folder, "assets");

await rm(folder, {recursive: true, force: true});
await mkdir(assets, {recursive: true});
/** Leaves out of the library of the connection what no page uses: a transport of old browsers, a worker, and what only its debug level logs. */
const unused = {
    name: "unused",
    setup({onLoad}) {
        onLoad({filter: /cometd\/\w+\.js$/}, async ({path}) => ({contents: path.endsWith("CallbackPollingTransport.js")
            ? 'import {Transport} from "./Transport.js"; export class CallbackPollingTransport extends Transport {}'
            : (await readFile(path, "utf8")).replace(/^ *this\.(?:cometd\._|_)?debug\(.*\);$/gm, "")}));
    },
};

const {metafile} = await build({
    entryPoints: ["src/main.ts"],
    bundle: true,
    splitting: true,
    format: "esm",
    target: "es2022",
    minify: true,
    metafile: true,
    outdir: assets,
    entryNames: "[name]-[hash]",
    chunkNames: "[name]-[hash]",
    alias: {"numora-client": "../clients/typescript/src"},
    external: ["ws"],  // which the client imports in Node.js only
    nodePaths: ["node_modules"],
    define: {"window.Worker": "undefined"},
    plugins: [unused],
    legalComments: "linked",
    logLevel: "warning",
});

const styles = await Promise.all(["tokens", "layout", "log", "rich"].map(name => readFile(`style/${name}.css`, "utf8")));
const {outputFiles: [style]} = await build({stdin: {contents: styles.join("\n"), loader: "css"}, minify: true, write: false});
const styleName = `style-${createHash("sha256").update(style.contents).digest("hex").slice(0, 8)}.css`;
await writeFile(join(assets, styleName), style.contents);

const outputs = Object.entries(metafile.outputs);
const [main] = outputs.find(([, {entryPoint}]) => entryPoint === "src/main.ts");
const editor = outputs.find(([, {entryPoint}]) => entryPoint === "src/input/Editor.ts")[0];
const shell = await readFile("index.html", "utf8");
await writeFile(join(folder, "index.html"), shell
    .replace("main.js", basename(main)).replace("editor.js", basename(editor)).replace("style.css", styleName));

const sizes = {};
for (const name of await readdir(assets)) sizes[name] = await compress(join(assets, name));
await compress(join(folder, "index.html"));

/** Result: the size with brotli. */
async function compress(path) {
    const content = await readFile(path);
    const options = {params: {[constants.BROTLI_PARAM_QUALITY]: 11, [constants.BROTLI_PARAM_SIZE_HINT]: content.length}};
    const smaller = {br: await promisify(brotliCompress)(content, options), gz: await promisify(gzip)(content, {level: 9})};
    for (const [ending, bytes] of Object.entries(smaller)) await writeFile(`${path}.${ending}`, bytes);
    return smaller.br.length;
}

/** The files that are needed before `path` runs. */
function withImports(path, found = new Set()) {
    if (found.has(path)) return found;
    found.add(path);
    for (const {path: next, kind} of metafile.outputs[path].imports) if (kind === "import-statement") withImports(next, found);
    return found;
}

const sum = paths => [...paths].reduce((size, path) => size + sizes[basename(path)], 0);
const scripts = outputs.map(([path]) => path).filter(path => path.endsWith(".js"));
const measured = {inAll: sum(scripts), first: sum(withImports(main))};
for (const [name, limit] of Object.entries(budget)) {
    const text = `${(measured[name] / KiB).toFixed(1)} KiB of ${limit / KiB} KiB`;
    console.log(name === "first" ? `Scripts before output shows: ${text}` : `Scripts in all: ${text}`);
    if (measured[name] > limit) {
        console.error("The scripts must not be larger.");
        process.exitCode = 1;
    }
}
