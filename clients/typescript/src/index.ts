export {type CallOptions, Client, type ConnectOptions, connect, type EvalOptions, type EvalResult, type Subscription}
    from "./Client.js";
export type {EvalStream, StreamOptions} from "./EvalStream.js";
export type {StreamEvent} from "./streamEvents.js";
export {NumoraError} from "./errors.js";
export type {Handler, Message} from "./Session.js";
