// Two tests at a time: each has a server and a browser context of its own, and mostly waits.

export default {
    testDir: ".",
    testMatch: "*.spec.js",
    workers: 2,
    fullyParallel: true,
    timeout: 90_000,
    expect: {timeout: 30_000},
    reporter: "line",
    outputDir: process.env.OUTPUT ?? "results",
    use: {
        viewport: {width: 1280, height: 800},
        launchOptions: {executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium"},
        permissions: ["clipboard-read", "clipboard-write"],
    },
};
