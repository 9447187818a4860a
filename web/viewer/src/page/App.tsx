import { useSignal, useSignalEffect } from '@preact/signals';
import { useEffect } from 'preact/hooks';
import { useStore } from './context.js';
import { FileCards } from './FileCards.js';
import { HelpDialog } from './HelpDialog.js';
import { Icon } from './icons.js';
import { Invitation } from './Invitation.js';
import { DropVeil, OpenField } from './OpenFiles.js';
import { Picture } from './Picture.js';
import { Sheets, SidePanels } from './Panels.js';
import { Toolbar } from './Toolbar.js';
import { TopBar } from './TopBar.js';
import { ClipControls, MeasureControls } from './ViewControls.js';

/** The style sheet draws its line at the same width. */
const PHONE = '(max-width: 760px)';

function usePhone(): boolean {
  const phone = useSignal(matchMedia(PHONE).matches);
  useEffect(() => {
    const query = matchMedia(PHONE);
    const change = () => void (phone.value = query.matches);
    query.addEventListener('change', change);
    return () => query.removeEventListener('change', change);
  }, [phone]);
  return phone.value;
}

/** What was just done, for a moment. */
function Notice() {
  const store = useStore();
  const { notice } = store;
  useSignalEffect(() => {
    if (!notice.value) return;
    const timer = setTimeout(() => (notice.value = null), 4000);
    return () => clearTimeout(timer);
  });
  return (
    <div class="notice" role="status">
      {notice.value && <p key={notice.value.nth}>{notice.value.text}</p>}
    </div>
  );
}

/** Everything around the picture. The canvas itself is in the document already, below this. */
export function App({ canvas }: { canvas: HTMLCanvasElement }) {
  const store = useStore();
  const phone = usePhone();
  const files = store.files.value;
  const empty = files.length === 0 && store.incoming.value.length === 0;
  const first = files[0];
  useEffect(() => {
    document.title = first
      ? `${first.name}${files.length > 1 ? ` and ${files.length - 1} more` : ''} – kelSrc viewer`
      : 'kelSrc viewer';
  }, [files]);
  return (
    <div class={`page${empty ? ' empty-page' : ''}${phone ? ' phone' : ''}`}>
      <TopBar panels={!phone && !empty} list={!empty} />
      {store.trouble.value && (
        <div class="trouble" role="alert">
          <Icon name="warning" />
          <p>{store.trouble.value}</p>
        </div>
      )}
      <main class="stage" aria-label="Picture">
        <Picture canvas={canvas} />
        {empty && <Invitation />}
        <FileCards />
        {!empty && (
          <div class="tools">
            <ClipControls />
            <MeasureControls />
            {!phone && <Toolbar />}
          </div>
        )}
        <Notice />
        <OpenField />
      </main>
      {!empty && (phone ? <Sheets /> : <SidePanels />)}
      <DropVeil />
      <HelpDialog />
      <p class="visually-hidden" role="status">
        {store.spoken.value}
      </p>
    </div>
  );
}
