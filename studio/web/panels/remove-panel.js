import { byId, setText } from "../dom/element.js";
import { chooseFile } from "../open/open-dialog.js";
import { dropPreview, startPreview, startRuns } from "../run/commands.js";
import { chosenOptions, faults, isInForce } from "../run/options.js";
import { inReadingOrder } from "../run/option-order.js";
import { resultNames } from "../run/result-names.js";
import { remember } from "../state/actions.js";
import { currentImage, isEnded } from "../state/selectors.js";
import { jobProgress } from "../text/format.js";
import { messageView } from "./messages.js";
import { optionField } from "./option-fields.js";

/**
 * Options, preview and run.
 *
 * @param {Object} store
 * @param {import("../view/stage.js").Stage} stage
 */
export function connectRemovePanel(store, stage) {
  connectProgram(store);
  connectOptions(store);
  connectSuggestion(store);
  connectPreview(store, stage);
  connectResultSettings(store);
  connectRun(store);
}

function connectProgram(store) {
  store.watch(
    (state) => state.server.program,
    (program) => {
      const missing = program !== null && !program.found;
      byId("no-program").hidden = !missing;
      setText(byId("no-program-text"), missing ? program.error : "");
    },
  );
}

function connectOptions(store) {
  let described = [];
  let fields = new Map();

  function change(name, value) {
    const options = { ...store.get().remembered.options, [name]: value };
    if (value === "" || value === false) {
      delete options[name];
    }
    remember(store, { options });
  }

  function setFile(name, file) {
    store.update((state) => {
      const chosenFiles = { ...state.chosenFiles, [name]: file };
      if (!file) {
        delete chosenFiles[name];
      }
      return { ...state, chosenFiles };
    });
  }

  function makeFields(info) {
    described = info ? chosenOptions(info) : [];
    fields = new Map(
      described.map((option) => [
        option.name,
        optionField(option, {
          change: (value) => change(option.name, value),
          chooseFile: async () => {
            const file = await chooseFile(store);
            if (file) {
              setFile(option.name, file);
            }
          },
          dropFile: () => setFile(option.name, null),
        }),
      ]),
    );
    byId("options").replaceChildren(...inReadingOrder(described).map((option) => fields.get(option.name).node));
  }

  function showValues() {
    const { remembered, chosenFiles } = store.get();
    const wrong = faults(described, remembered.options);
    for (const option of described) {
      fields.get(option.name).show({
        value: remembered.options[option.name],
        file: chosenFiles[option.name],
        enabled: isInForce(option, remembered.options),
        fault: wrong[option.name] ?? "",
      });
    }
  }

  store.watch((state) => state.server.program?.machine_info ?? null, (info) => {
    makeFields(info);
    showValues();
  });
  store.watch((state) => [state.remembered.options, state.chosenFiles], showValues);
}

function connectSuggestion(store) {
  store.watch(
    (state) => [currentImage(state), Boolean(state.remembered.options.linear)],
    ([image, linear]) => {
      const suggestion = image?.state === "ready" ? image.suggestion : null;
      const differs = suggestion && suggestion.linear !== linear;
      byId("suggestion").hidden = !differs;
      if (differs) {
        setText(byId("suggestion-text"), suggestion.reason);
        setText(byId("suggestion-use"), suggestion.linear ? "Treat it as linear" : "Treat it as stretched");
      }
    },
  );
  byId("suggestion-use").addEventListener("click", () => {
    const { linear, ...others } = store.get().remembered.options;
    remember(store, { options: linear ? others : { ...others, linear: true } });
    byId("option-linear")?.focus();
  });
}

function connectPreview(store, stage) {
  const showMessages = messageView(byId("preview-messages"));
  byId("preview").addEventListener("click", () => startPreview(store, stage));
  byId("preview-drop").addEventListener("click", () => dropPreview(store));
  store.watch(
    (state) => {
      const image = currentImage(state);
      const job = state.server.jobs.find((one) => one.id === image?.preview?.job);
      return [image, job, state.messages[job?.id]];
    },
    ([image, job, messages]) => {
      const preview = image?.preview ?? null;
      byId("preview-state").hidden = preview === null;
      setText(byId("preview-text"), preview ? previewText(preview, job) : "");
      byId("preview-state").dataset.state = preview?.state ?? "";
      setText(byId("preview-drop"), preview?.state === "ready" ? "Remove preview" : "Cancel");
      showMessages(messages);
    },
  );
}

function previewText(preview, job) {
  const size = `${preview.width} × ${preview.height} pixels`;
  switch (preview.state) {
    case "ready":
      return `Preview of ${size}, shown in place.`;
    case "failed":
      return preview.error ?? "The preview failed.";
    default:
      return `Preview of ${size}: ${job && !isEnded(job) ? jobProgress(job) : "Starting"}`;
  }
}

const EXAMPLE_ROLES = { mask: "the star mask", unscreen: "the stars as a layer" };

function connectResultSettings(store) {
  for (const role of Object.keys(EXAMPLE_ROLES)) {
    const box = byId(`keep-${role}`);
    box.addEventListener("change", () => {
      const others = store.get().remembered.keep.filter((one) => one !== role);
      remember(store, { keep: box.checked ? [...others, role] : others });
    });
  }
  const pattern = byId("pattern");
  pattern.addEventListener("input", () => remember(store, { pattern: pattern.value }));
  const format = byId("format");
  format.addEventListener("change", () => remember(store, { format: format.value }));
  store.watch(
    (state) => [state.remembered, currentImage(state)],
    ([remembered, image]) => {
      for (const role of Object.keys(EXAMPLE_ROLES)) {
        byId(`keep-${role}`).checked = remembered.keep.includes(role);
      }
      if (pattern.value !== remembered.pattern) {
        pattern.value = remembered.pattern;
      }
      format.value = remembered.format;
      const name = image?.name ?? "m31.fits";
      setText(byId("pattern-example"), resultNames(name, remembered).join(", "));
    },
  );
}

function lastRun(jobs, image) {
  const own = jobs.filter((job) => job.kind === "run" && image !== null && job.file === image.file);
  return own.at(-1) ?? null;
}

function connectRun(store) {
  const showMessages = messageView(byId("run-messages"));
  byId("run").addEventListener("click", () => {
    const image = currentImage(store.get());
    if (image) {
      startRuns(store, [image.file]);
    }
  });
  store.watch(
    (state) => {
      const job = lastRun(state.server.jobs, currentImage(state));
      return [job, state.messages[job?.id]];
    },
    ([job, messages]) => {
      byId("run-state").hidden = job === null;
      byId("run-state").dataset.state = job?.state ?? "";
      setText(byId("run-text"), job ? (job.error ?? jobProgress(job)) : "");
      showMessages(messages);
    },
  );
  store.watch(
    (state) => [currentImage(state)?.state === "ready", Boolean(state.server.program?.found)],
    ([ready, found]) => {
      byId("run").disabled = !ready || !found;
      byId("preview").disabled = !ready || !found;
    },
  );
}
