// What the page says beside a control, and controls held still while a request runs.

export function describeError(error) {
    if (error.code === null || error.code === undefined)
        return error.message;
    return `${error.message} (error ${error.code})`;
}

export function showError(element, error) {
    element.textContent = describeError(error);
    element.className = 'message error';
}

export function showDone(element, text) {
    element.textContent = text;
    element.className = 'message done';
}

export function clearMessage(element) {
    element.textContent = '';
    element.className = 'message';
}

// Disables the controls (inputs, buttons or fieldsets) while the request runs. A disabled
// control loses the focus, so the one that had it gets it back: a keyboard user goes on
// where they were instead of starting again from the top of the page.
export async function whileBusy(controls, request) {
    const focused = document.activeElement;
    for (const control of controls)
        control.disabled = true;
    try {
        return await request();
    } finally {
        for (const control of controls)
            control.disabled = false;
        if (controls.some((control) => control.contains(focused)))
            focused.focus();
    }
}

// Numbers as an operator reads them: the tracker keeps some in single precision, where
// 4.1 comes back as 4.099999904632568.
export function formatNumber(value) {
    return String(Number(value.toPrecision(7)));
}
