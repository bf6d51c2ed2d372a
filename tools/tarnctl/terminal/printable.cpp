// SPDX-License-Identifier: GPL-2.0-only
#include <tarnctl/terminal/printable.h>

namespace tarn
{

std::string printable(const std::string &name)
{
	std::string text;

	for (const char c : name)
		text += static_cast<unsigned char>(c) < ' ' || c == 0x7f ? '?' : c;
	return text;
}

} // namespace tarn
