import { Icon } from './icons.js';

/** What stands in the page's place where nothing can be drawn. */
export function NoEngine({ message }: { message: string }) {
  return (
    <main class="no-engine">
      <Icon name="warning" />
      <h1>This browser cannot show 3D</h1>
      <p role="alert">{message}</p>
    </main>
  );
}
