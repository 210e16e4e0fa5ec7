tallowin_fuzzer(gpt ptable)
tallowin_fuzzer(embr ptable)
