// Hands the requests of the suite to the driver and prints what the suite makes of the answers.
//   node suite.mjs <folder of the suite> <driver> <base URL of the suite's server>
import { spawn } from 'node:child_process'
import { createInterface } from 'node:readline'
import { pathToFileURL } from 'node:url'

const [folder, driverPath, base] = process.argv.slice(2)
const load = name => import(pathToFileURL(`${folder}/${name}`))
const { runTests, getResults } = await load('client/runner.mjs')
const suites = (await load('tests/index.mjs')).default

const driver = spawn(driverPath, [], { stdio: ['pipe', 'pipe', 'inherit'] })
const waiting = new Map()
let lastId = 0
createInterface({ input: driver.stdout }).on('line', line => {
  const answer = JSON.parse(line)
  const { resolve, reject } = waiting.get(answer.id)
  waiting.delete(answer.id)
  if (answer.error !== undefined) return reject(new TypeError(answer.error))
  // Not a `Response`: that takes no status of 999, by which the server says what it missed.
  resolve({
    status: answer.status,
    headers: new Headers(answer.headers),
    text: () => Promise.resolve(answer.body)
  })
})

// A reload, as browsers ask for one.
const isReload = init => init.cache === 'no-cache' &&
  !init.headers.some(([name]) => name.toLowerCase() === 'cache-control')

function fetch (url, init = {}) {
  const headers = [...(init.headers ?? [])]
  if (isReload({ ...init, headers })) headers.push(['Cache-Control', 'max-age=0'])
  return new Promise((resolve, reject) => {
    const id = ++lastId
    waiting.set(id, { resolve, reject })
    driver.stdin.write(JSON.stringify(
      { id, url, method: init.method ?? 'GET', headers, body: init.body }) + '\n')
  })
}

await runTests(suites, fetch, true, base)
driver.stdin.end()
const results = getResults()
const counts = {}
for (const suite of suites) {
  for (const test of suite.tests) {
    const result = results[test.id]
    if (result === undefined) continue // not for private caches
    const kind = test.kind ?? 'required'
    counts[kind] ??= { passed: 0, all: 0 }
    ++counts[kind].all
    if (result === true) {
      ++counts[kind].passed
    } else {
      console.log(`${kind}\t${test.id}\t${result.join(': ')}`)
    }
  }
}
for (const [kind, { passed, all }] of Object.entries(counts)) {
  console.log(`${kind}: ${passed} of ${all}`)
}
const { passed, all } = counts.required
process.exitCode = passed >= 0.94 * all ? 0 : 1
