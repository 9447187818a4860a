/** Line icons on a grid of 20 × 20, drawn in the text's colour. Decoration: the buttons around them have names. */

const PATHS = {
  open: 'M3 15.5v-11h5l1.5 2H17v9z',
  search: 'M8.75 14a5.25 5.25 0 1 0 0-10.5 5.25 5.25 0 0 0 0 10.5zM12.6 12.6 17 17',
  eye: 'M2 10s2.9-5 8-5 8 5 8 5-2.9 5-8 5-8-5-8-5zM10 12.2a2.2 2.2 0 1 0 0-4.4 2.2 2.2 0 0 0 0 4.4z',
  eyeOff:
    'M3.5 12.3C2.5 11.1 2 10 2 10s2.9-5 8-5c1 0 1.9.2 2.7.5M16 7.200c1.3 1.3 2 2.8 2 2.800s-2.9 5-8 5c-.9 0-1.7-.1-2.4-.4M4 16.5 16 3.5',
  isolate: 'M10 13a3 3 0 1 0 0-6 3 3 0 0 0 0 6zM3 6.5V3h3.5M13.5 3H17v3.5M17 13.5V17h-3.5M6.5 17H3v-3.5',
  fit: 'M3 7V3h4M13 3h4v4M17 13v4h-4M7 17H3v-4M7.5 7.5h5v5h-5z',
  cube: 'M10 2.5 16.5 6v8L10 17.5 3.5 14V6zM3.5 6 10 9.5 16.5 6M10 9.5v8',
  layers: 'M10 3 17.5 7 10 11 2.5 7zM2.5 10.5 10 14.5l7.5-4M2.5 13.5 10 17.5l7.5-4',
  wireframe: 'M10 2.5 17.5 16h-15zM10 2.5 7.5 16M10 2.5 12.5 16M5.5 10.5h9',
  bounds: 'M4 4h3M4 4v3M16 4h-3M16 4v3M4 16h3M4 16v-3M16 16h-3M16 16v-3M9 4h2M9 16h2M4 9v2M16 9v2',
  clip: 'M10 2v16M4 5h6v10H4zM12.5 5h1M15.5 5h.5v1.5M16 9v2M16 13.5V15h-.500M13.5 15h-1',
  measure: 'M2.5 13 13 2.5l4.5 4.5L7 17.5zM5.5 10l1.5 1.5M8 7.5l2.2 2.200M10.5 5l1.5 1.5',
  picture: 'M2.5 6h3.5L7.5 4h5L14 6h3.5v10h-15zM10 13.5a2.75 2.75 0 1 0 0-5.5 2.75 2.75 0 0 0 0 5.5z',
  link: 'M8.5 11.5a3 3 0 0 0 4.3 0l3-3a3 3 0 0 0-4.3-4.300L10.5 5.200M11.5 8.5a3 3 0 0 0-4.3 0l-3 3a3 3 0 0 0 4.3 4.300l1-1',
  fullScreen: 'M12 3h5v5M17 3l-5.5 5.5M8 17H3v-5M3 17l5.5-5.5',
  help: 'M10 17.5a7.5 7.5 0 1 0 0-15 7.5 7.5 0 0 0 0 15zM7.8 8a2.25 2.25 0 1 1 3.2 2c-.7.4-1 .8-1 1.700M10 14.300v.2',
  close: 'M5 5l10 10M15 5 5 15',
  chevron: 'M7.5 5l5 5-5 5',
  list: 'M3.5 5h.5M3.5 10h.5M3.5 15h.5M7.5 5h9M7.5 10h9M7.5 15h9',
  info: 'M10 17.5a7.5 7.5 0 1 0 0-15 7.5 7.5 0 0 0 0 15zM10 9.200v4.600M10 6.300v.2',
  file: 'M5 2.5h6.5L15 6v11.5H5zM11.5 2.5V6H15M7.5 10h5M7.5 13h5',
  copy: 'M7 7h9.5v9.5H7zM13 7V3.5H3.5V13H7',
  sliders: 'M3 6h6M13 6h4M11 4v4M3 14h2M9 14h8M7 12v4',
  flip: 'M10 3v14M7.5 6 3 14h4.5zM12.5 6 17 14h-4.5z',
  sun: 'M10 13.300a3.3 3.3 0 1 0 0-6.6 3.3 3.3 0 0 0 0 6.600zM10 2v1.5M10 16.5V18M2 10h1.5M16.5 10H18M4.3 4.300l1.1 1.100M14.6 14.600l1.1 1.100M15.7 4.300l-1.1 1.100M5.4 14.600l-1.1 1.1',
  moon: 'M16.5 12.200A7 7 0 0 1 7.8 3.5a7 7 0 1 0 8.7 8.700z',
  auto: 'M10 17.5a7.5 7.5 0 1 0 0-15 7.5 7.5 0 0 0 0 15zM10 2.5v15M10 5.5h4.5M10 8.5h7M10 11.5h7M10 14.5h4.5',
  warning: 'M10 3 18 16.5H2zM10 8.5v3.5M10 14.200v.2',
  reload: 'M16 10a6 6 0 1 1-1.8-4.300L16.5 8M16.5 3.5V8H12',
  panelLeft: 'M2.5 4h15v12h-15zM7.5 4v12',
  panelRight: 'M2.5 4h15v12h-15zM12.5 4v12',
} as const;

export type IconName = keyof typeof PATHS;

export function Icon({ name }: { name: IconName }) {
  return (
    <svg class="icon" viewBox="0 0 20 20" width="20" height="20" aria-hidden="true" focusable="false">
      <path
        d={PATHS[name]}
        fill="none"
        stroke="currentColor"
        stroke-width="1.5"
        stroke-linecap="round"
        stroke-linejoin="round"
      />
    </svg>
  );
}
