/** What the page says while nothing is open. */
export function Invitation() {
  return (
    <main>
      <h1>kelSrc viewer</h1>
      <p>Drop SRC files here.</p>
    </main>
  );
}
