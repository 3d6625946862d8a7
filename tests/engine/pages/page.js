// SPDX-FileCopyrightText: 2026 The libvask authors
// SPDX-License-Identifier: MIT

// The plug-in's calls of listeners, in order: each the listener's name and what it was called with.
var heard = [];

function listener(name) {
    return function () {
        heard.push([name].concat(Array.prototype.slice.call(arguments)));
    };
}
