/** What the server answers when it refuses: `code` for programs, `message` for the person, `details` besides. */
export class ApiError extends Error {
  /**
   * @param {number} status of HTTP; 0 where the server did not answer at all
   * @param {string} code such as "exists"
   * @param {string} message word for word as the server said it
   * @param {Object} details other members of the answer, such as `names`
   */
  constructor(status, code, message, details = {}) {
    super(message);
    this.status = status;
    this.code = code;
    this.details = details;
  }
}

const NOT_ANSWERED = "The studio does not answer. It may have been closed; nothing was changed.";

/**
 * The error that an answer stands for.
 *
 * @param {number} status
 * @param {string} text the answer's body
 * @returns {ApiError}
 */
export function errorOfAnswer(status, text) {
  try {
    const { code, message, ...details } = JSON.parse(text).error;
    return new ApiError(status, code, message, details);
  } catch {
    const words =
      status === 403
        ? "The studio was started again since this page was opened. Open the address that it has printed."
        : text.trim() || `The studio answered with status ${status}.`;
    return new ApiError(status, status === 403 ? "forbidden" : "internal", words);
  }
}

/**
 * Asks the server.
 *
 * @param {"GET"|"POST"|"PUT"|"DELETE"} method
 * @param {string} path below the server's address, such as "/api/jobs"
 * @param {Object} [body] sent as JSON
 * @param {AbortSignal} [signal]
 * @returns {Promise<Object|null>} the answer, null where it has no body
 * @throws {ApiError} where the server refuses or does not answer
 */
export async function request(method, path, body, signal) {
  const options = { method, signal };
  if (body !== undefined) {
    options.headers = { "Content-Type": "application/json" };
    options.body = JSON.stringify(body);
  }
  let response;
  let text;
  try {
    response = await fetch(path, options);
    text = await response.text();
  } catch (error) {
    if (error.name === "AbortError") {
      throw error;
    }
    throw new ApiError(0, "not_answered", NOT_ANSWERED);
  }
  if (!response.ok) {
    throw errorOfAnswer(response.status, text);
  }
  return text ? JSON.parse(text) : null;
}

/**
 * Hands a file to the server, whole and as it is.
 *
 * @param {File} file
 * @param {function(number): void} progress called with the part that is sent, 0 to 1
 * @returns {Promise<{file: string, name: string, size: number}>}
 * @throws {ApiError}
 */
export function upload(file, progress) {
  return new Promise((resolve, reject) => {
    const sending = new XMLHttpRequest();
    sending.open("POST", `/api/uploads?name=${encodeURIComponent(file.name)}`);
    sending.setRequestHeader("Content-Type", "application/octet-stream");
    sending.upload.addEventListener("progress", (event) => {
      if (event.lengthComputable && event.total > 0) {
        progress(event.loaded / event.total);
      }
    });
    sending.addEventListener("load", () => {
      if (sending.status === 201) {
        resolve(JSON.parse(sending.responseText));
      } else {
        reject(errorOfAnswer(sending.status, sending.responseText));
      }
    });
    sending.addEventListener("error", () => reject(new ApiError(0, "not_answered", NOT_ANSWERED)));
    sending.send(file);
  });
}
