import type { CreateEngine } from './api.js';
import { ViewerEngine } from './engine.js';

export const createEngine: CreateEngine = (canvas) => new ViewerEngine(canvas);
