// zelk-sss.tlb of the bundled host holds nothing: it needs libzelk-sss.so, whose static
// initialisers register the node types.
