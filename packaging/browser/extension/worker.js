'use strict';
// Tells the Mnemora program on this computer the address, and on request the text, of the page in
// front. The browser starts the native host, which relays between this worker and the program.
//
// From the program:  {id, ask: "address" | "text", focused}    focused: only from a window with the focus
//                               text is given of nothing else
//                    {ask: "state"}                             say again what is in front
// To the program:    {id, address, titles, text}                text only where the page has one
//                    {id, refused}                              why there is no answer, in a word or two
//                    {state: {focused, address, titles, used}}  pushed on every change
//
// Private windows: the manifest forbids this extension in them, so the browser never shows them
// here. While one has the focus, no window known here has it, and requests are refused.

const hostName = 'app.mnemora.pages';
const windowTypes = ['normal', 'popup', 'app'];
// The program keeps 6000 characters; this leaves room for long grapheme clusters while a page of
// many megabytes stays where it is.
const longestText = 256 * 1024;
const longestAddress = 128 * 1024;
// Shorter than the time that the program waits, so that it can tell a hung page from a hung browser.
const pageTime = 1000;
// Below the 30 idle seconds after which the browser ends a worker without a port. A worker that was
// ended all the same starts again, and connects, with the next change of window or tab.
const reconnectPause = 20000;
const settleTime = 30;

let port = null;
let reconnecting = null;
let settling = null;
let told = '';
let hadFocus = false;
let lastUsed = 0;
const beingRead = new Set();

function connect() {
    if (port)
        return;
    clearTimeout(reconnecting);
    reconnecting = null;
    const opened = chrome.runtime.connectNative(hostName);
    port = opened;
    told = '';
    opened.onMessage.addListener((request) => answer(opened, request));
    opened.onDisconnect.addListener(() => {
        void chrome.runtime.lastError; // the host isn't installed, or ended: the same to us
        port = null;
        reconnecting = setTimeout(connect, reconnectPause);
    });
    stateMayHaveChanged();
}

async function answer(to, request) {
    if (request.ask === 'state') {
        told = '';
        stateMayHaveChanged();
        return;
    }
    let reply;
    try {
        reply = await found(request);
    } catch (error) {
        reply = { refused: String(error).slice(0, 200) };
    }
    if (port === to)
        to.postMessage({ id: request.id, ...reply });
}

async function found(request) {
    if (request.ask === 'text' && !request.focused)
        return { refused: 'only of the window with the focus' };
    const before = await pageInFront();
    if (!before || (request.focused && !before.focused))
        return { focused: false, refused: 'no window in front' };
    if (request.ask === 'address')
        return { focused: before.focused, address: before.address, titles: [before.title] };
    if (request.ask !== 'text')
        return { refused: 'unknown request' };
    const text = await textOf(before.tab);
    const after = await pageInFront();
    // Another tab or page came to the front meanwhile: whether that one may be read was never asked.
    if (!after || after.tab !== before.tab || after.address !== before.address ||
        (request.focused && !after.focused))
        return { focused: Boolean(after?.focused), refused: 'the page changed' };
    const titles = [...new Set([before.title, after.title])];
    const reply = { focused: after.focused, address: after.address, titles };
    return typeof text === 'string' ? { ...reply, text } : reply;
}

/// The active tab of the window focused last among those that the browser shows to this extension.
async function pageInFront() {
    let window;
    try {
        window = await chrome.windows.getLastFocused({ windowTypes });
    } catch {
        return null; // no ordinary window at all
    }
    const [tab] = await chrome.tabs.query({ active: true, windowId: window.id });
    if (!tab || window.incognito || tab.incognito)
        return null;
    return {
        tab: tab.id,
        focused: window.focused,
        address: (tab.url || '').slice(0, longestAddress).toWellFormed(),
        title: (tab.title || '').slice(0, longestAddress).toWellFormed()
    };
}

/// The text of the tab's main frame; null where it has none or doesn't answer in time.
async function textOf(tab) {
    // A page that hangs is asked once, not once more every few seconds.
    if (beingRead.has(tab))
        return null;
    beingRead.add(tab);
    const reading = chrome.scripting
        .executeScript({ target: { tabId: tab }, func: pageText, args: [longestText] })
        .then((results) => results[0]?.result ?? null, () => null) // chrome:// and store pages refuse
        .finally(() => beingRead.delete(tab));
    const late = new Promise((resolve) => setTimeout(resolve, pageTime, null));
    return Promise.race([reading, late]);
}

/// Runs in the page, in a world of its own that the page's scripts can't reach.
function pageText(longest) {
    if (!document.body || document.contentType === 'application/pdf')
        return null;
    let text = document.body.innerText;
    if (typeof text !== 'string')
        return null;
    if (text.length > longest) {
        const half = text.charCodeAt(longest - 1);
        text = text.slice(0, half >= 0xd800 && half < 0xdc00 ? longest - 1 : longest);
    }
    return text.toWellFormed();
}

/// Moving between windows or loading a page comes as a burst of events: tell once at its end.
function stateMayHaveChanged() {
    connect();
    clearTimeout(settling);
    settling = setTimeout(tellState, settleTime);
}

async function tellState() {
    const page = await pageInFront().catch(() => null);
    const focused = Boolean(page?.focused);
    if (focused || hadFocus)
        lastUsed = focused && hadFocus ? lastUsed : Date.now();
    hadFocus = focused;
    const state = { focused, used: lastUsed };
    if (page)
        state.address = page.address;
    const text = JSON.stringify(state);
    if (!port || text === told)
        return;
    told = text;
    port.postMessage({ state });
}

chrome.runtime.onStartup.addListener(stateMayHaveChanged); // the browser starts workers for it
chrome.runtime.onInstalled.addListener(stateMayHaveChanged);
chrome.windows.onFocusChanged.addListener(stateMayHaveChanged, { windowTypes });
chrome.windows.onRemoved.addListener(stateMayHaveChanged, { windowTypes });
chrome.tabs.onActivated.addListener(stateMayHaveChanged);
chrome.tabs.onReplaced.addListener(stateMayHaveChanged);
chrome.tabs.onUpdated.addListener((_, change, tab) => {
    if (tab.active && change.url)
        stateMayHaveChanged();
});

connect();
