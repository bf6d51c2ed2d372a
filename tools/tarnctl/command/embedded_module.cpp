// SPDX-License-Identifier: GPL-2.0-only
// The module's shared object within tarnctl, so that a copied tarnctl needs no other file. The
// hosted kernel's loader finds it by these symbols.
__asm__(".pushsection .rodata\n"
	".balign 16\n"
	".globl carried_module_begin\n"
	"carried_module_begin:\n"
	".incbin \"" TARN_MODULE_FILE "\"\n"
	".globl carried_module_end\n"
	"carried_module_end:\n"
	".byte 0\n"
	".popsection\n");
