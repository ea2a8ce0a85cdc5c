import { listen } from "./remote/events.js";
import { request } from "./remote/client.js";
import { hideError } from "./dom/announce.js";
import { connectDialogs } from "./dom/dialog.js";
import { byId, setText } from "./dom/element.js";
import { connectTabs } from "./dom/tabs.js";
import { connectShortcuts } from "./help/shortcuts.js";
import { connectImageStrip } from "./open/image-strip.js";
import { connectOpenDialog } from "./open/open-dialog.js";
import { connectDrop } from "./open/opening.js";
import { connectActivity } from "./panels/activity.js";
import { connectBlendPanel } from "./panels/blend-panel.js";
import { connectQueuePanel } from "./panels/queue-panel.js";
import { connectRemovePanel } from "./panels/remove-panel.js";
import { connectViewPanel } from "./panels/view-panel.js";
import { tryIt } from "./run/commands.js";
import { remember } from "./state/actions.js";
import { initialState } from "./state/initial.js";
import { rememberSettings } from "./state/remembering.js";
import { applyServerEvent } from "./state/server-events.js";
import { createStore } from "./state/store.js";
import { connectReadout } from "./view/readout.js";
import { Stage } from "./view/stage.js";
import { connectToolbar } from "./view/toolbar.js";

const CONNECTION_WORDS = {
  lost: "The studio does not answer. If it was closed, start it again and open the address that it prints; otherwise this page goes on by itself as soon as it is back.",
  refused: "The studio was started again since this page was opened. Open the address that it has printed.",
};

function connectConnection(store) {
  store.watch(
    (state) => state.connection,
    (connection) => {
      const words = CONNECTION_WORDS[connection] ?? "";
      byId("connection").hidden = !words;
      setText(byId("connection-text"), words);
      document.body.dataset.connection = connection;
    },
  );
}

function connectPanelTabs(store) {
  const show = connectTabs(byId("tabs"), (tab) => remember(store, { tab }));
  const known = new Set([...document.querySelectorAll("#tabs [role=tab]")].map((tab) => tab.id));
  store.watch(
    (state) => state.remembered.tab,
    (tab) => show(known.has(tab) ? tab : "tab-view"),
  );
}

function start() {
  const store = createStore(initialState());
  const stage = new Stage(store);
  connectDialogs();
  connectConnection(store);
  connectPanelTabs(store);
  connectToolbar(store, stage);
  const readout = connectReadout(store, stage);
  connectImageStrip(store);
  connectOpenDialog(store);
  connectDrop(store);
  connectViewPanel(store);
  connectRemovePanel(store, stage);
  connectBlendPanel(store);
  connectQueuePanel(store);
  connectActivity(store);
  connectShortcuts(store, stage, readout);
  rememberSettings(store);
  byId("error-close").addEventListener("click", hideError);
  byId("program-again").addEventListener("click", () => tryIt(() => request("POST", "/api/program", {})));
  listen(
    (name, data) => store.update((state) => applyServerEvent(state, name, data)),
    (connection) => store.update((state) => ({ ...state, connection })),
  );
}

start();
