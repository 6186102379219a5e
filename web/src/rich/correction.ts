/** `code` with `name` in place of the wrong one, which stands in quotes in the text of the error; else the name alone. */
export function corrected(code: string, name: string, error: string): string {
    const quoted = [...error.matchAll(/'([\w.]+)'/g)].map(match => match[1]!).reverse();
    for (const wrong of quoted) {
        const word = new RegExp(`(?<!\\w)${wrong.replaceAll(".", "\\.")}(?!\\w)`, "g");
        if (wrong !== name && word.test(code)) return code.replaceAll(word, name);
    }
    return name;
}
