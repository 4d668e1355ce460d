// Placeholder so the library has a source until the log lands.
