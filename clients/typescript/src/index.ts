export {type CallOptions, Client, type ConnectOptions, connect, type EvalOptions, type EvalResult, type Subscription}
    from "./Client.js";
export type {EvalStream, StreamOptions} from "./EvalStream.js";
export type {StreamEvent} from "./streamEvents.js";
export {InterpreterDied, NumoraError} from "./errors.js";
export type {Death, DeathRecord, Interpreter, InterpreterOptions} from "./interpreters.js";
export type {ConnectionState, Handler, Message, RequestOptions} from "./Session.js";
