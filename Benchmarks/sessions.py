# SPDX-License-Identifier: MIT
"""One session of qf_bench, measured natively or counted under callgrind."""

import json
import os
import re
import subprocess
import tempfile

# Under valgrind rep movsb counts as one instruction for each octet, unlike on any machine. Without it the C library
# copies 32 octets at a time.
WIDE_COPIES = "glibc.cpu.hwcaps=-ERMS"
# 16 octets at a time, on machines without AVX2 too.
SSE2_COPIES = "glibc.cpu.hwcaps=-ERMS,-AVX_Fast_Unaligned_Load"


class Session:
    """folder: where qf_bench was built. output: a path, or "-" for a sink that only counts."""

    def __init__(self, folder, writer, workload, seconds, output):
        self.folder = os.path.abspath(folder)
        self.output = output
        self.arguments = [os.path.join(self.folder, "qf_bench"), writer, workload, str(seconds), output]

    def _run(self, command, **environment):
        done = subprocess.run(command, env={**os.environ, **environment}, capture_output=True, text=True)
        if done.returncode != 0:
            raise RuntimeError(f"{' '.join(command)}: {done.stderr[-1000:]}")
        return json.loads(done.stdout)

    def time(self, rehearse=True):
        """CPU time of a session."""
        return self._run(self.arguments + ["rehearse"] * rehearse)

    def weigh(self):
        """Allocations and the heap's peak, which the first session of a process shows best."""
        return self._run(self.arguments, LD_PRELOAD=os.path.join(self.folder, "qf_heap_count.so"))

    def count(self, copies):
        """Instructions and system calls, after a rehearsal."""
        with tempfile.NamedTemporaryFile("r", prefix="qf_bench.") as log:
            valgrind = ["valgrind", "--tool=callgrind", "--instr-atstart=no", "--callgrind-out-file=/dev/null",
                        "--trace-syscalls=yes", f"--log-file={log.name}"]
            result = self._run(valgrind + self.arguments + ["rehearse"], GLIBC_TUNABLES=copies)
            trace = log.read()
        result["instructions"] = int(re.search(r"Collected : (\d+)", trace).group(1))
        measured = trace.split("sys_getppid")[1]
        result["system_calls"] = len(re.findall(r"\) sys_\w+ \(", measured)) # a call that blocks has a second line
        return result

    def remove(self):
        """Removes the file."""
        if self.output != "-":
            os.remove(self.output)
