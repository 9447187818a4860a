import { createContext } from 'preact';
import { useContext } from 'preact/hooks';
import type { Store } from './store.js';

export const StoreContext = createContext<Store | null>(null);

export function useStore(): Store {
  const store = useContext(StoreContext);
  if (!store) throw new Error('there is no store around this component');
  return store;
}
