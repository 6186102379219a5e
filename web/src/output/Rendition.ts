// The state that SGR sequences (CSI ... m) change: colours and letter styles.

/** How a piece of text looks: classes of the 16 theme colours and letter styles, CSS colours for all others. */
export interface Style {
    readonly classes: string;
    readonly color: string;
    readonly background: string;
}

const enum Flag { bold = 1, faint = 2, italic = 4, underline = 8, inverse = 16, conceal = 32, strike = 64 }
const flagNames = ["bold", "faint", "italic", "underline", "inverse", "conceal", "strike"];
const flagsOn: Readonly<Record<number, Flag>> =
    {1: Flag.bold, 2: Flag.faint, 3: Flag.italic, 4: Flag.underline, 7: Flag.inverse, 8: Flag.conceal, 9: Flag.strike, 21: Flag.underline};
const flagsOff: Readonly<Record<number, number>> = {22: Flag.bold | Flag.faint, 23: Flag.italic, 24: Flag.underline, 27: Flag.inverse,
    28: Flag.conceal, 29: Flag.strike};

// A colour: none, an index + 1, or trueColor + RGB.
const none = 0, trueColor = 0x1000000;

/** The current style; undefined for none. */
export class Rendition {
    style: Style | undefined;
    private foreground = none;
    private background = none;
    private flags = 0;

    apply(parameters: string): void {
        if (/[<=>?]/.test(parameters)) return;
        const fields = parameters.split(";");
        for (let i = 0; i < fields.length; ++i) {
            const [code, ...parts] = fields[i]!.split(":").map(Number) as [number, ...number[]];
            if (code !== 38 && code !== 48 && code !== 58) {
                this.applyCode(parts[0] === 0 && code === 4 ? 24 : code);
                continue;
            }
            const rest = parts.length > 0 ? parts : fields.slice(i + 1, i + 5).map(Number);
            if (parts.length === 0) i += rest[0] === 2 ? 4 : rest[0] === 5 ? 2 : 0;
            const color = colorOf(rest);
            if (color === undefined) continue;
            if (code === 38) this.foreground = color;
            else if (code === 48) this.background = color;
        }
        this.style = styleOf(this.foreground, this.background, this.flags);
    }

    private applyCode(code: number): void {
        if (code === 0) this.foreground = this.background = this.flags = 0;
        else if (flagsOn[code]) this.flags |= flagsOn[code]!;
        else if (flagsOff[code]) this.flags &= ~flagsOff[code]!;
        else if (code >= 30 && code <= 37) this.foreground = code - 29;
        else if (code >= 90 && code <= 97) this.foreground = code - 81;
        else if (code >= 40 && code <= 47) this.background = code - 39;
        else if (code >= 100 && code <= 107) this.background = code - 91;
        else if (code === 39) this.foreground = none;
        else if (code === 49) this.background = none;
    }
}

/** The colour of 5;n, 2;r;g;b or 2:space:r:g:b; undefined for anything else. */
function colorOf([kind, ...values]: number[]): number | undefined {
    if (kind === 5) return isByte(values[0]) ? values[0] + 1 : undefined;
    const rgb = values.length > 3 && kind === 2 ? values.slice(1, 4) : values;
    const [red, green, blue] = rgb;
    if (kind !== 2 || !isByte(red) || !isByte(green) || !isByte(blue)) return undefined;
    return trueColor + red * 65536 + green * 256 + blue;
}

const isByte = (value: number | undefined): value is number => value !== undefined && value >= 0 && value <= 255;

function cssOf(color: number): string {
    if (color >= trueColor) return "#" + (color - trueColor).toString(16).padStart(6, "0");
    const index = color - 1;
    if (index >= 232) return `rgb(${`${8 + 10 * (index - 232)} `.repeat(3).trim()})`;
    const level = (step: number) => (step % 6 === 0 ? 0 : 55 + 40 * (step % 6));
    const cube = index - 16;
    return `rgb(${level(Math.floor(cube / 36))} ${level(Math.floor(cube / 6))} ${level(cube)})`;
}

// Equal styles are one object. Bounded, for true colours are many: after that, later equal styles are other objects.
const styles = new Map<string, Style>();

function styleOf(foreground: number, background: number, flags: number): Style | undefined {
    if (foreground === none && background === none && flags === 0) return undefined;
    const key = `${foreground} ${background} ${flags}`;
    let style = styles.get(key);
    if (style) return style;
    const isInverse = (flags & Flag.inverse) !== 0;
    const [front, back] = isInverse ? [background, foreground] : [foreground, background];
    const classes = flagNames.filter((name, bit) => name !== "inverse" && flags & (1 << bit));
    for (const [name, color] of [["fg", front], ["bg", back]] as const) {
        if (color >= 1 && color <= 16) classes.push(`${name}-${color - 1}`);
        else if (color === none && isInverse) classes.push(`${name}-inverse`);
    }
    style = {classes: classes.join(" "), color: front > 16 ? cssOf(front) : "", background: back > 16 ? cssOf(back) : ""};
    if (styles.size >= 4096) styles.clear();
    styles.set(key, style);
    return style;
}
