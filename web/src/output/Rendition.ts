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

/** What a sequence changes, whatever was before: colours, where it names them, and letter styles. */
interface Change {
    foreground: number | undefined;
    background: number | undefined;
    keptFlags: number;
    addedFlags: number;
}

const mostCached = 4096;

/** A map that forgets all when it is full: programs use few styles, but hostile text many. */
function cached<Key, Value>(map: Map<Key, Value>, key: Key, make: () => Value): Value {
    let value = map.get(key);
    if (value === undefined) {
        if (map.size >= mostCached) map.clear();
        map.set(key, value = make());
    }
    return value;
}

const changes = new Map<string, Change>();

/** The current style; undefined for none. */
export class Rendition {
    style: Style | undefined;
    private foreground = none;
    private background = none;
    private flags = 0;

    apply(parameters: string): void {
        const change = cached(changes, parameters, () => changeOf(parameters));
        this.foreground = change.foreground ?? this.foreground;
        this.background = change.background ?? this.background;
        this.flags = (this.flags & change.keptFlags) | change.addedFlags;
        this.style = styleOf(this.foreground, this.background, this.flags);
    }
}

function changeOf(parameters: string): Change {
    const change: Change = {foreground: undefined, background: undefined, keptFlags: ~0, addedFlags: 0};
    if (/[<=>?]/.test(parameters)) return change;
    const fields = parameters.split(";");
    for (let i = 0; i < fields.length; ++i) {
        const [code, ...parts] = fields[i]!.split(":").map(Number) as [number, ...number[]];
        if (code !== 38 && code !== 48 && code !== 58) {
            addCode(change, parts[0] === 0 && code === 4 ? 24 : code);
            continue;
        }
        const rest = parts.length > 0 ? parts : fields.slice(i + 1, i + 5).map(Number);
        if (parts.length === 0) i += rest[0] === 2 ? 4 : rest[0] === 5 ? 2 : 0;
        const color = colorOf(rest);
        if (code === 38) change.foreground = color ?? change.foreground;
        else if (code === 48) change.background = color ?? change.background;
    }
    return change;
}

function addCode(change: Change, code: number): void {
    const off = code === 0 ? ~0 : flagsOff[code] ?? 0;
    change.keptFlags &= ~off;
    change.addedFlags = (change.addedFlags & ~off) | (flagsOn[code] ?? 0);
    if (code === 0) change.foreground = change.background = none;
    else if (code >= 30 && code <= 37) change.foreground = code - 29;
    else if (code >= 90 && code <= 97) change.foreground = code - 81;
    else if (code >= 40 && code <= 47) change.background = code - 39;
    else if (code >= 100 && code <= 107) change.background = code - 91;
    else if (code === 39) change.foreground = none;
    else if (code === 49) change.background = none;
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

// Equal styles are one object, so that runs of them that touch become one.
const styles = new Map<number, Style>();

function styleOf(foreground: number, background: number, flags: number): Style | undefined {
    if (foreground === none && background === none && flags === 0) return undefined;
    if (foreground >= trueColor || background >= trueColor) return makeStyle(foreground, background, flags);
    return cached(styles, (flags * 512 + foreground) * 512 + background, () => makeStyle(foreground, background, flags));
}

function makeStyle(foreground: number, background: number, flags: number): Style {
    const isInverse = (flags & Flag.inverse) !== 0;
    const [front, back] = isInverse ? [background, foreground] : [foreground, background];
    const classes = flagNames.filter((name, bit) => name !== "inverse" && flags & (1 << bit));
    for (const [name, color] of [["fg", front], ["bg", back]] as const) {
        if (color >= 1 && color <= 16) classes.push(`${name}-${color - 1}`);
        else if (color === none && isInverse) classes.push(`${name}-inverse`);
    }
    return {classes: classes.join(" "), color: front > 16 ? cssOf(front) : "", background: back > 16 ? cssOf(back) : ""};
}
