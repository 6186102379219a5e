import assert from "node:assert/strict";
import {test} from "node:test";
import {imported} from "./modules.js";

const {AnsiParser, ControlText} = await imported("output/AnsiParser.ts", "output/ControlText.ts");

/** What came out, as "[classes color background]text". */
function read(...texts) {
    const parser = new AnsiParser();
    let out = "", last = "";
    for (const text of texts)
        parser.parse(text, {
            text: (text, from, to, style) => {
                const name = style ? `[${[style.classes, style.color, style.background && `on ${style.background}`].filter(Boolean).join(" ")}]` : "[]";
                out += (name === last || (out === "" && !style) ? "" : name) + text.slice(from, to);
                last = name;
            },
            control: character => (out += JSON.stringify(character)),
            eraseLine: mode => (out += `<K${mode}>`),
        });
    return out;
}

const sequences = {
    "letters": ["\x1b[1;3;4mx\x1b[22;23;24my", "[bold italic underline]x[]y"],
    "faint, strike, conceal": ["\x1b[2;8;9mx\x1b[22;28;29my", "[faint conceal strike]x[]y"],
    "sixteen colours": ["\x1b[31mr\x1b[97;44mb\x1b[39;49mn\x1b[107mw", "[fg-1]r[fg-15 bg-4]b[]n[bg-15]w"],
    "256 colours": ["\x1b[38;5;9ma\x1b[38;5;16;48;5;231mb\x1b[38;5;255mc", "[fg-9]a[rgb(0 0 0) on rgb(255 255 255)]b[rgb(238 238 238) on rgb(255 255 255)]c"],
    "the cube": ["\x1b[38;5;67mx", "[rgb(95 135 175)]x"],
    "true colours, all forms": ["\x1b[38;2;1;2;255ma\x1b[38:2:1:2:3mb\x1b[38:2::1:2:4mc\x1b[38:5:2md", "[#0102ff]a[#010203]b[#010204]c[fg-2]d"],
    "what follows a colour is not eaten": ["\x1b[38;5;1;1mx\x1b[0;58;2;1;2;3;4my", "[bold fg-1]x[underline]y"],
    "colours out of range change nothing": ["\x1b[31m\x1b[38;5;256;38;2;1;2;999;1mx", "[bold fg-1]x"],
    "inverse": ["\x1b[7mx\x1b[31my\x1b[27mz", "[fg-inverse bg-inverse]x[fg-inverse bg-1]y[fg-1]z"],
    "curly underline": ["\x1b[4:3mx\x1b[4:0my", "[underline]x[]y"],
    "empty means reset": ["\x1b[31mx\x1b[my\x1b[31;mz", "[fg-1]x[]yz"],
    "private m is no style": ["\x1b[>4;1mx\x1b[?1my", "xy"],
    "erase line": ["a\x1b[Kb\x1b[1Kc\x1b[2Kd\x1b[3Ke", "a<K0>b<K1>c<K2>de"],
    "other sequences go": ["a\x1b[2J\x1b[10;3H\x1b[?25l\x1b(B\x1b7\x1b=b\x1bc", "ab"],
    "titles and links of OSC go": ["a\x1b]0;title\x07b\x1b]8;;http://x\x1b\\c\x1b]8;;\x1b\\d\x1bPq\x1b\\e", "abcde"],
    "an OSC without end hides one line": ["a\x1b]0;never ended\nb", "a\nb"],
    "a broken CSI ends where it cannot go on": ["\x1b[3\nx\x1b[1é\x1b[\x1b[31my", "\nxé[fg-1]y"],
    "control characters": ["a\x00\x07\x7f\x9b\x85b\tc\r\b\f\v", 'ab\tc"\\r""\\b""\\f""\\u000b"'],
    "a surrogate pair": ["\x1b[1m😀\x1b[m\n", "[bold]😀[]\n"],
    "a lone ESC before other letters": ["\x1bé\x1b\x1b[31mx", "é[fg-1]x"],
};

for (const [name, [text, wanted]] of Object.entries(sequences))
    test(`escape sequences: ${name}, whole and cut anywhere`, () => {
        assert.equal(read(text), wanted);
        for (let at = 1; at < text.length; ++at) assert.equal(read(text.slice(0, at), text.slice(at)), wanted, `cut at ${at}`);
        assert.equal(read(...text), wanted);
    });

test("garbage takes time in proportion, and text after it is read", () => {
    for (const garbage of ["\x1b[", "\x1b]", "\x1b[1;", "\x1b[3", "\x1b", "\x1b[38;2;"]) assert.match(read(garbage.repeat(1e5) + "\x1b[m\nx"), /\nx$/);
    assert.equal(read("\x1b[" + "1".repeat(1e6), "\nx"), "\nx");
});

/** The lines as they stand after each text. */
function shown(...texts) {
    const control = new ControlText();
    for (const text of texts) control.write(text);
    return control.finished.text + "|" + control.line.text;
}

const lines = {
    "\\r\\n is a line end": [["a\r\nb\r\n"], "a\nb\n|"],
    "\\r, cut from its \\n": [["a\r", "\nb"], "a\n|b"],
    "\\r writes over": [["12345\rab"], "|ab345"],
    "\\r and a longer text": [["ab\rcdef\n"], "cdef\n|"],
    "\\r at the end keeps the line": [["50%\r"], "|50%"],
    "\\b writes over, and stops at the start": [["abc\b\bX\b\b\b\b\bY"], "|YXc"],
    "\\b goes back over a surrogate pair": [["a😀\bb"], "|ab"],
    "half a pair is not left over": [["😀c\ra"], "|ac"],
    "\\n in the middle keeps the rest of the line": [["abc\rX\nd"], "Xbc\n|d"],
    "\\f and \\v end the line": [["a\fb\vc"], "a\nb\n|c"],
    "erase to the end": [["abc\r\x1b[Kx"], "|x"],
    "erase to the start": [["abcd\b\b\x1b[1K"], "|  cd"],
    "erase all, the cursor stays": [["abc\x1b[2Kd\r\x1b[2Ke"], "|e"],
    "erase all, then a line end": [["abc\x1b[2K\nd"], "\n|d"],
};

for (const [name, [texts, wanted]] of Object.entries(lines)) test(`lines: ${name}`, () => assert.equal(shown(...texts), wanted));

test("styles move with the text that is written over", () => {
    const control = new ControlText();
    control.write("\x1b[31mabcdef\x1b[32m\b\b\b\bXY\x1b[m\n");
    const {text, starts, ends, styles} = control.finished;
    assert.deepEqual(styles.map(({classes}, i) => [classes, text.slice(starts[i], ends[i])]), [["fg-1", "ab"], ["fg-2", "XY"], ["fg-1", "ef"]]);
});

test("a line without end is finished piece by piece", () => {
    const control = new ControlText();
    for (let i = 0; i < 100; ++i) control.write("x".repeat(1000));
    assert.equal(control.finished.length + control.line.length, 1e5);
    assert.ok(control.line.length <= 4096);
});
