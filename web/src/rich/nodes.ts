// A chunk of its own: calls, and what is shown in the log beside text, each by a function that fills an element that is in its place
// already.

export {showDeath} from "./DeathView.js";
export {showError} from "./ErrorView.js";
export {FigureStore} from "./FigureView.js";
export {showProgress} from "./ProgressView.js";
export {showBundle} from "./RichEntry.js";
export {activityOf, interrupt} from "../wire/calls.js";
