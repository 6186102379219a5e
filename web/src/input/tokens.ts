import type {StreamParser, StringStream} from "@codemirror/language";

const keywords = /^(?:and|as|assert|async|await|break|class|continue|def|del|elif|else|except|finally|for|from|global|if|import|in|is|lambda|nonlocal|not|or|pass|raise|return|try|while|with|yield)$/;
const atoms = /^(?:True|False|None)$/;
const string = /^(?:[rbf]|rb|br|rf|fr)?('''|"""|'|")/i;
const number = /^(?:0[xob][\da-f_]+|\d[\d_]*(?:\.[\d_]*)?(?:e[+-]?\d+)?j?|\.\d[\d_]*(?:e[+-]?\d+)?j?)/i;

interface State {
    /** Quotes of the string that is open, over lines where there are three. */
    quotes: string;
    /** The name that follows is being defined. */
    defines: boolean;
}

/** Colours of Python code, line by line: the interpreter knows the rest. */
export const tokens: StreamParser<State> = {
    name: "python",
    startState: () => ({quotes: "", defines: false}),
    token(stream, state) {
        if (state.quotes !== "") return inString(stream, state);
        if (stream.eatSpace()) return null;
        if (stream.match(/^#.*/)) return "comment";
        const opening = stream.match(string) as RegExpMatchArray | null;
        if (opening) {
            state.quotes = opening[1]!;
            return inString(stream, state);
        }
        if (stream.match(number)) return "number";
        const name = stream.match(/^[\p{L}_][\p{L}\p{N}_]*/u) as RegExpMatchArray | null;
        if (!name) {
            stream.next();
            return null;
        }
        const {defines} = state;
        state.defines = name[0] === "def" || name[0] === "class";
        return keywords.test(name[0]) ? "keyword" : atoms.test(name[0]) ? "atom" : defines ? "def" : "variable";
    },
    languageData: {commentTokens: {line: "#"}},
};

function inString(stream: StringStream, state: State): string {
    while (!stream.eol()) {
        if (stream.match(state.quotes)) {
            state.quotes = "";
            return "string";
        }
        if (stream.next() === "\\") stream.next();
    }
    if (state.quotes.length === 1) state.quotes = "";
    return "string";
}
