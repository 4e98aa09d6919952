// Descriptors 0, 1 and 2 as every library and tool assumes them: open.
//
// A process started with one of them closed (`cmd 2>&-`) hands that number
// to the next file it opens, and whatever is then written to "standard
// error" lands in that file: progress text inside an audio output. Any that
// is closed is opened on /dev/null, before anything else opens a file.
#pragma once

namespace wv {

// 0, or -errno when /dev/null cannot be opened. Any thread; cheap when all
// three are open (three fcntl calls).
int keepStandardDescriptors();

}  // namespace wv
