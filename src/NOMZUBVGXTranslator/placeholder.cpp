// Placeholder so the library has a source until the translator services land.
