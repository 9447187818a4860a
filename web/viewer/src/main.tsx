import { render } from 'preact';
import './page/style.css';
import { Invitation } from './page/Invitation.js';

render(<Invitation />, document.getElementById('app')!);
