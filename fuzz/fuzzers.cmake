tallowin_fuzzer(gpt ptable)
tallowin_fuzzer(embr ptable)
tallowin_fuzzer(mbr ptable)
tallowin_fuzzer(identify ptable)
