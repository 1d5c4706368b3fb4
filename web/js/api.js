// The service's configuration CGI: one POST per call, the JSON envelope around it.

const ENDPOINT = '/zelk-cgi/trelvo.cgi';
const API_VERSION = '1.1';

let lastContext = 0;

// A refused call: the API's code and message, or code null when the unit did not answer
// with the envelope at all (network down, web server error).
export class ApiError extends Error {
    constructor(method, code, message) {
        super(message);
        this.method = method;
        this.code = code;
    }
}

// Resolves with the answer's data; rejects with an ApiError.
export async function call(method, params) {
    const request = { apiVersion: API_VERSION, context: String(++lastContext), method };
    if (params !== undefined)
        request.params = params;
    let response;
    try {
        response = await fetch(ENDPOINT, {
            method: 'POST',
            headers: { 'Content-Type': 'application/json' },
            body: JSON.stringify(request),
            cache: 'no-store',
        });
    } catch {
        throw new ApiError(method, null, 'The unit does not answer');
    }
    if (!response.ok)
        throw new ApiError(method, null, `The unit's web server answered HTTP ${response.status}`);
    const answer = await response.json().catch(() => null);
    if (answer === null || typeof answer !== 'object')
        throw new ApiError(method, null, 'The unit answered something that is not JSON');
    if (answer.error)
        throw new ApiError(method, answer.error.code, answer.error.message);
    if (answer.context !== request.context || answer.data === null || typeof answer.data !== 'object')
        throw new ApiError(method, null, 'The unit answered another request');
    return answer.data;
}
