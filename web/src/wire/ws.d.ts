// The client imports it in Node.js only.
export const WebSocket: any;
