export {type CallOptions, Client, type ConnectOptions, connect, type EvalOptions, type EvalResult, type Subscription}
    from "./Client.js";
export type {EvalStream, StreamEvent} from "./EvalStream.js";
export {NumoraError} from "./errors.js";
export type {Handler, Message} from "./Session.js";
