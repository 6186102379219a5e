// What is no text, hostile text, transcripts, and who cannot see or point.

import {readFile} from "node:fs/promises";
import {expect, test} from "./console.js";

const figure = "import matplotlib.pyplot as plt\nplt.plot([1, 3, 2]); plt.title('Growth')\nprint('before'); plt.show(); print('after')";
const table = `class Table:
    def _repr_html_(self):
        return '<table>' + ''.join('<tr><td style="background:#fdd">%d</td></tr>' % i for i in range(10_000)) + '</table>'
Table()`;

test("figures, tables, progress and displays stand in their place, and are saved with the rest", async ({console, page}) => {
    await console.run(figure);
    const image = console.log.locator(".figure img");
    await expect(image).toHaveAttribute("alt", "Growth");
    expect(await image.evaluate(each => each.naturalWidth)).toBeGreaterThan(100);
    expect(await console.entries.last().locator(".entry-body").textContent()).toMatch(/^before\n.*Growth.*after\n$/s);
    await console.run("import numora\nfor i in numora.progress(range(5), 'epoch'): print(i)");
    await expect(console.log.locator(".progress")).toContainText("epoch 5/5");
    await console.run(table);
    const cells = console.log.locator(".rich-html td");
    await expect(cells).toHaveCount(10_000);
    expect(await cells.first().evaluate(each => getComputedStyle(each).backgroundColor)).toBe("rgb(255, 221, 221)");
    expect(await console.log.locator(".rich-html").evaluate(each => each.clientHeight)).toBeLessThan(700);
    await console.run("shown = display('one', display_id=True)\nshown.update('two')");
    await expect(console.log.locator(".rich-text")).toHaveText("'two'");

    await console.run("import numora\nfor i in range(3):\n    print('step', i)\n    numora.clear_output(wait=True)\n    display('shown %d' % i)");
    await expect.poll(() => console.entries.last().locator(".entry-body").innerText()).toBe("'shown 2'\n");

    const saved = async (kind) => {
        const [download] = await Promise.all([page.waitForEvent("download"), console.menu(`Save as ${kind}`)]);
        return readFile(await download.path(), "utf8");
    };
    const {cells: all, nbformat} = JSON.parse(await saved("notebook"));
    expect(nbformat).toBe(4);
    expect(all.map(({execution_count, outputs}) => [execution_count, ...outputs.map(({output_type}) => output_type)]).slice(0, 1))
        .toEqual([[1, "stream", "display_data", "stream"]]);
    expect(all[0].outputs[1].data["image/png"]).toMatch(/^iVBOR/);
    expect(await saved("Markdown")).toContain("```python\nimport matplotlib.pyplot as plt\n");
    expect(await saved("text")).toMatch(/before\nGrowth\nafter\n[^]*<__main__\.Table object/);
});

test("a data frame is read from its beginning to its end, and its HTML stays when it is gone", async ({console, page}) => {
    await console.run("import pandas as pd\nfor i in range(100): print(i)\ndf = pd.DataFrame({'n': range(1_000_000), 's': [f'text {i}' for i in range(1_000_000)]})\ndf");
    const table = console.log.getByRole("table"), scroller = console.log.locator(".table-scroll");
    const cell = text => console.log.getByRole("cell", {name: text, exact: true});
    await expect(cell("text 0")).toBeInViewport();
    await expect(console.log.locator(".table-foot")).toBeInViewport();
    await expect(table).toHaveAttribute("aria-rowcount", "1000001");
    await scroller.focus();
    for (const [key, shown] of [["End", "text 999999"], ["Home", "text 0"], ["PageDown", "text 20"], ["ArrowDown", "text 21"]]) {
        await page.keyboard.press(key);
        await expect(cell(shown), key).toBeInViewport();
    }
    await scroller.evaluate(each => each.scrollTo(0, each.scrollHeight / 2));
    await expect(cell("text 500005")).toBeInViewport();
    expect(await console.log.getByRole("row").count()).toBeLessThan(60);
    const row = console.log.getByRole("row").filter({hasText: "text 500005"});
    await expect(row).toHaveAttribute("aria-rowindex", "500007");
    await row.evaluate(each => document.getSelection().selectAllChildren(each));
    await page.keyboard.press("Control+c");
    expect(await page.evaluate(() => navigator.clipboard.readText())).toBe("500005\t500005\ttext 500005");

    await page.reload();
    await expect(cell("text 0")).toBeInViewport();
    await console.run("df = df[:2]\ndf");
    await scroller.evaluate(each => each.scrollTo(0, each.scrollHeight));
    await expect(console.log).toContainText("the table is not kept any more");
    await expect(console.log.locator(".rich-html").first().locator("td").last()).toHaveText("text 999999");
    await page.getByRole("button", {name: "Open df as a table"}).click();
    const panel = page.getByRole("tabpanel");
    await expect(panel.getByRole("cell", {name: "text 1", exact: true})).toBeVisible();
    await console.run("df = [[1], ['two']]");
    await expect(panel.getByRole("cell", {name: "two", exact: true})).toBeVisible();
    await console.run("df = [[f'{row} {column}' for column in range(300)] for row in range(300)]");
    await expect(panel.getByRole("cell", {name: "5 0", exact: true})).toBeVisible();
    await panel.locator(".table-scroll").evaluate(each => each.scrollTo(each.scrollWidth, 0));
    await expect(panel.getByRole("cell", {name: "5 199", exact: true})).toHaveAttribute("aria-colindex", "201");
    expect(await panel.getByRole("cell").count()).toBeLessThan(500);
});

test("hostile text and HTML run nothing and request nothing", async ({console, page}) => {
    const hostile = [
        "<script>globalThis.hit = 1</script>", "<img src=x onerror='globalThis.hit = 1'>", "<img src=https://example.org/x>",
        "<svg onload='globalThis.hit = 1'><image href='/x'/></svg>", "<a href='javascript:globalThis.hit = 1'>link</a>",
        "<form action=/x><input name=a><button>send</button></form>", "<iframe src=/x></iframe>", "<object data=/x></object>",
        "<style>* { background: url(/x) }</style>", "<div style='background: url(/x)'>div</div>", "<style>@import '/x';</style>",
        "<a".repeat(300_000), "<div style='position: fixed; inset: 0; background: red'>over</div>", "<base href=https://example.org/>", "<meta http-equiv=refresh content='0;url=/x'>",
    ];
    const requests = [];
    page.on("request", request => /\/x$|example/.test(request.url()) && requests.push(request.url()));
    await console.run(`class Hostile:\n    def __init__(self, text): self.text = text\n    def _repr_html_(self): return self.text\nfor text in ${JSON.stringify(hostile)}: display(Hostile(text))`);
    await console.run(`print(${JSON.stringify(hostile.join("\n"))}, 'https://' + ')' * 16_000)`);
    await expect(console.log.locator(".rich-html")).toHaveCount(hostile.length);
    await console.log.locator(".rich-html a").click();
    await console.run("display({'image/svg+xml': '<svg xmlns=\"http://www.w3.org/2000/svg\" onload=\"hit=1\"><script>hit=1</script></svg>'}, raw=True)");
    await expect(console.log.locator(".rich-html").locator("form, iframe, object, base, meta, script, style, svg")).toHaveCount(0);
    expect(await page.evaluate(() => globalThis.hit)).toBe(undefined);
    expect(requests).toEqual([]);
    // What is shown covers nothing but its own place.
    expect(await page.evaluate(() => document.elementFromPoint(20, 20).closest("#header") !== null)).toBe(true);
});
