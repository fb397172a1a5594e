// Placeholder for a subsystem folder that has no sources yet.
